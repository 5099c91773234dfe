#pragma once

#include "scenario.h"

#include <string>

namespace cli {

/// Reads a scenario file with what it refers to (.reg files, device library). Throws UnusableFile with every problem.
Scenario readScenario(const std::string &path);

/// The same for text that stands for the file `path`.
Scenario parseScenario(const std::string &text, const std::string &path);

} // namespace cli
