#pragma once

#include "simulator/machine/driver_image.h"

namespace fuzz {

/// The driver's module, mapped once and never unmapped: what counts the code reached lies in it. Each image that is
/// opened calls its entry again, which sets up all that the driver keeps outside its contexts.
std::unique_ptr<sim::DriverImage> openLastingDriver();

} // namespace fuzz
