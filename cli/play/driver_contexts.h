#pragma once

#include "../facts/device_outcome.h"

#include <ntifs.h>

#include <optional>
#include <string>

namespace cli {

/// What the driver's device object in a stack is, found by the type of its context: "usb-filter", "control-device", …;
/// "disk" for one that has none, as the filters on disks; "nothing" for null.
std::string attachedKind(PDEVICE_OBJECT device);

/// The inner values of a USB filter; nothing when the device object is something else.
std::optional<FilterValues> readFilterValues(PDEVICE_OBJECT device);

/// What the driver as a whole goes by.
struct DriverState {
    bool controlDevice = false;
    bool serviceRegistered = false;
    std::uint32_t serviceProcess = 0; ///< 0: none
    std::uint32_t serviceHandles = 0;
    std::uint32_t callbackMode = 0;
    std::uint32_t fallbackAction = 0;
};

/// Nothing while no driver is loaded.
std::optional<DriverState> readDriverState(PDRIVER_OBJECT driver);

} // namespace cli
