#pragma once

#include "../../simulator/machine/device_description.h"
#include "yaml_node.h"

#include <optional>

namespace cli {

/// Reads what a device says on the wire, on top of `usb`.
void readUsb(const YamlNode &node, sim::UsbDescriptors &usb);

/// {fail: STATUS}, {shorten-to: N} or {bytes: HEX}: how the hub answers one kind of request.
std::optional<sim::HubAnswer> parseHubAnswer(const YamlNode &node);

/// A status by name or number.
std::optional<NTSTATUS> parseStatusNode(const YamlNode &node, std::string_view what);

} // namespace cli
