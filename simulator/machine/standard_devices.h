#pragma once

#include "device_description.h"

namespace sim::machine {

/// What every machine has between the root and the root hub, outermost first: the ACPI machine, the PCI bus, the USB
/// host controller. Each is the parent of the next.
std::vector<DeviceDescription> hostControllerPath();
DeviceDescription rootHubDescription(std::u16string_view hubDriver);
/// The driver's own root-enumerated node.
DeviceDescription controlNodeDescription();

} // namespace sim::machine
