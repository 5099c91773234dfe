#pragma once

#include "device_description.h"

#include <memory>
#include <vector>

namespace sim::machine {

/// A device that is physically there, whether or not Plug and Play knows it at the moment: what is below a hub stays
/// plugged while the hub is disabled or its port is cycled. `below` is guarded by the device tree's lock, the rest does
/// not change.
struct Hardware {
    DeviceDescription description;
    std::uint32_t address = 0xFFFFFFFF; ///< port number below a hub, interface number below a composite device
    std::vector<std::shared_ptr<Hardware>> below;
};

} // namespace sim::machine
