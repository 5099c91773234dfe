#pragma once

#include "../../simulator/machine/device_description.h"
#include "device_library.h"
#include "yaml_node.h"

#include <string>

namespace cli {

/// Reads one device on top of `device`: keys that are given replace what is there (so a device taken from the library
/// can be changed key by key; "usb", "properties" and "children" are changed entry by entry). Keys of the scenario's
/// own (parent, expect) are for the caller to take from `reader` before. `library` answers "use: NAME" and may be null.
void readDevice(MapReader &reader, sim::DeviceDescription &device, const DeviceLibrary *library, int depth = 0);

/// Reports a device that lacks what every device needs.
void checkDevice(const YamlNode &node, const sim::DeviceDescription &device);

} // namespace cli
