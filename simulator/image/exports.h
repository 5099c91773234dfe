#pragma once

#include <string>

namespace sim::image {

/// The address of what a module of the simulated system exports; null for a module or name that it does not have.
void *exportOf(const std::string &module, const std::string &name);

} // namespace sim::image
