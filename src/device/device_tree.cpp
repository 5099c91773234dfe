#include "device/device_tree.h"

#include "device/device_layouts.h"
#include "device/driver_devices.h"
#include "support/text.h"

DeviceReference getParentDevice(PDEVICE_OBJECT device) {
    const auto base = DeviceReference::adopt(IoGetDeviceAttachmentBaseRef(device));
    const DeviceNodeLayout *node = deviceNodeOf(base.get());
    if (node == nullptr || node->parent == nullptr) {
        return {};
    }
    return DeviceReference::share(node->parent->physicalDeviceObject);
}

const UNICODE_STRING &driverName(PDEVICE_OBJECT device) {
    return device->DriverObject->DriverName;
}

bool isOwnedByHubDriver(PDEVICE_OBJECT device) {
    return equalIgnoringCase(driverName(device), hubDriverNames[0]) ||
           equalIgnoringCase(driverName(device), hubDriverNames[1]);
}
