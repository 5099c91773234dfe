#pragma once

#include "device_description.h"

#include "../kernel/registry.h"

namespace sim::machine {

enum class StackRole { filter, function };

/// A driver that belongs into a device's stack.
struct StackMember {
    std::u16string service;
    StackRole role = StackRole::filter;
};

/// The drivers above the physical device object, bottom first: device lower filters, class lower filters, the function
/// driver, device upper filters, class upper filters; list order within each (learn.microsoft.com: "Adding a PnP device
/// to a running system"; the place of the class filters is recalled from public implementations).
std::vector<StackMember> planStack(const DeviceDescription &description, const Registry &registry);

/// The security descriptor that Plug and Play puts on every object of the stack: the device's own registry value, or
/// its class's. Empty when neither is set (learn.microsoft.com: "Controlling device access").
std::vector<std::uint8_t> configuredSecurity(const DeviceDescription &description, const Registry &registry);

} // namespace sim::machine
