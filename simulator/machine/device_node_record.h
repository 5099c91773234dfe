#pragma once

#include <ntifs.h>

#include <cstddef>

namespace sim::machine {

/// The kernel's own record of a device node, in the undocumented layout that drivers walk from a physical device object
/// to its parent's (recalled: stable since Windows 7; measured for ARM64, 0x310 bytes).
struct DeviceNodeRecord {
    DeviceNodeRecord *sibling = nullptr;
    DeviceNodeRecord *child = nullptr;
    DeviceNodeRecord *parent = nullptr;
    DeviceNodeRecord *lastChild = nullptr;
    PDEVICE_OBJECT physicalDeviceObject = nullptr;
    UNICODE_STRING instancePath{};
    UNICODE_STRING serviceName{};
    PIRP pendingIrp = nullptr;
    UCHAR rest[0x310 - 0x50]{};
};

static_assert(offsetof(DeviceNodeRecord, sibling) == 0x00);
static_assert(offsetof(DeviceNodeRecord, child) == 0x08);
static_assert(offsetof(DeviceNodeRecord, parent) == 0x10);
static_assert(offsetof(DeviceNodeRecord, lastChild) == 0x18);
static_assert(offsetof(DeviceNodeRecord, physicalDeviceObject) == 0x20);
static_assert(offsetof(DeviceNodeRecord, instancePath) == 0x28);
static_assert(offsetof(DeviceNodeRecord, serviceName) == 0x38);
static_assert(offsetof(DeviceNodeRecord, pendingIrp) == 0x48);
static_assert(sizeof(DeviceNodeRecord) == 0x310);

} // namespace sim::machine
