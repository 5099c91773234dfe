#pragma once

#include <string>

namespace sim::image {

/// The entry for images of a routine that may raise a structured exception; null for any other routine.
void *raisingRoutine(const std::string &name);

} // namespace sim::image
