#pragma once

#include "../../simulator/kernel/registry.h"

#include <string>

namespace cli {

/// A whole registry as a .reg file in UTF-8: keys and values by name, each value with its type and bytes.
std::string registryListing(const sim::Registry &registry);

} // namespace cli
