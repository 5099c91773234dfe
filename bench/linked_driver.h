#pragma once

#include "simulator/machine/machine.h"

#include <memory>

namespace bench {

/// For MachineOptions::openImage: the driver's code that is linked into this program.
std::unique_ptr<sim::DriverImage> openLinkedDriver();

/// Throws std::runtime_error that names `what` unless the status is one of success.
void demand(NTSTATUS status, const char *what);

} // namespace bench
