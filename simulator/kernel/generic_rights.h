#pragma once

#include <ntifs.h>

namespace sim {

/// Replaces generic bits by what they stand for on files and devices; MAXIMUM_ALLOWED gives everything.
ACCESS_MASK mapGenericRights(ACCESS_MASK access);

} // namespace sim
