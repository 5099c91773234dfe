#pragma once

#include "driver/driver_context.h"
#include "simulator/framework/framework.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/machine.h"

#include <string>

namespace behaviour {

/// The driver-wide record of the loaded driver.
inline DriverContext &driverState(sim::Machine &machine) {
    return *static_cast<DriverContext *>(sim::framework::contextOfDriver(machine.driverObject(), "DriverContext"));
}

/// The text of devices that are below no USB hub driver.
inline std::string notUsbHubText(sim::Machine &machine) {
    return sim::toUtf8(sim::view(driverState(machine).notUsbHubText.view()));
}

} // namespace behaviour
