#pragma once

#include "device_description.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace sim::machine {

/// What a device sends for standard descriptor requests (USB 2.0 specification, chapter 9). Nothing = it stalls.
std::vector<std::uint8_t> deviceDescriptor(const UsbDescriptors &usb);
std::vector<std::uint8_t> configurationDescriptor(const UsbDescriptors &usb);
/// Index 0 is the list of languages; another index is answered only in a language of that list.
std::optional<std::vector<std::uint8_t>> stringDescriptor(const UsbDescriptors &usb, std::uint8_t index,
                                                          std::uint16_t language);

/// Throws std::invalid_argument when no device could send such descriptors.
void checkDescriptors(const UsbDescriptors &usb);

} // namespace sim::machine
