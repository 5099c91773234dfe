#pragma once

#include "violation.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace sim {

/// Names a code address of an image that the host's loader does not know (a loaded PE image). Nothing = not its own.
using CodeDescriber = std::function<std::optional<std::string>(const void *address)>;

/// Asked before the host's own modules. An empty function takes it away.
void setCodeDescriber(CodeDescriber describer);

/// The readable name of a function without its parameters.
std::string withoutParameters(std::string name);

} // namespace sim
