#pragma once

#include <ntifs.h>

/// What Plug and Play keeps of a device: a structure without public declaration. Only its first fields are described
/// here; their order has been the same since Windows 7 (public symbol files of the kernel).
struct DeviceNodeLayout {
    DeviceNodeLayout *sibling;
    DeviceNodeLayout *child;
    DeviceNodeLayout *parent;
    DeviceNodeLayout *lastChild;
    PDEVICE_OBJECT physicalDeviceObject;
};
static_assert(__builtin_offsetof(DeviceNodeLayout, parent) == 0x10);
static_assert(__builtin_offsetof(DeviceNodeLayout, physicalDeviceObject) == 0x20);

/// The part of a device object's extension that leads to its node; the public declaration ends before it.
struct DeviceExtensionLayout {
    UCHAR publicPart[0x28];
    DeviceNodeLayout *deviceNode; ///< null for anything but a physical device object
};
static_assert(__builtin_offsetof(DeviceExtensionLayout, deviceNode) == 0x28);

/// The node of a physical device object; null before its first enumeration and after its removal. Plug and Play sets it
/// any time, and there is no lock that a driver could take.
inline DeviceNodeLayout *deviceNodeOf(PDEVICE_OBJECT physicalDevice) {
    auto *extension = reinterpret_cast<DeviceExtensionLayout *>(physicalDevice->DeviceObjectExtension);
    return __atomic_load_n(&extension->deviceNode, __ATOMIC_ACQUIRE);
}
