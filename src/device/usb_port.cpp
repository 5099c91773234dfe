#include "device/usb_port.h"

#include "device/capabilities.h"
#include "device/device_classes.h"
#include "device/device_tree.h"
#include "device/identifiers.h"

namespace {

/// Whether the device shares its port with its parent, being one of the parent's functions.
bool isFunctionOf(PDEVICE_OBJECT parent, PDEVICE_OBJECT device, const UNICODE_STRING &hardwareIds) {
    if (isCompositeDevice(device)) {
        return false;
    }
    return isCompositeDevice(parent) || getInterfaceNumber(hardwareIds) != noInterfaceNumber;
}

NTSTATUS askForPort(WDFDEVICE owner, PDEVICE_OBJECT plugged, DeviceReference &hub, UsbPort &port) {
    DEVICE_CAPABILITIES capabilities;
    const NTSTATUS status = queryCapabilities(owner, plugged, capabilities);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    port.hub = static_cast<DeviceReference &&>(hub);
    port.number = capabilities.Address;
    return STATUS_SUCCESS;
}

} // namespace

NTSTATUS findOwnUsbPort(WDFDEVICE owner, PDEVICE_OBJECT physicalDevice, UsbPort &port) {
    DeviceReference hub = getParentDevice(physicalDevice);
    return hub ? askForPort(owner, physicalDevice, hub, port) : STATUS_UNSUCCESSFUL;
}

NTSTATUS findUsbPort(WDFDEVICE owner, PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &hardwareIds, UsbPort &port) {
    auto plugged = DeviceReference::share(physicalDevice);
    DeviceReference hub = getParentDevice(physicalDevice);
    if (!hub) {
        return STATUS_UNSUCCESSFUL;
    }
    if (isFunctionOf(hub.get(), physicalDevice, hardwareIds)) {
        plugged = static_cast<DeviceReference &&>(hub);
        hub = getParentDevice(plugged.get());
        if (!hub) {
            return STATUS_UNSUCCESSFUL;
        }
    }
    return askForPort(owner, plugged.get(), hub, port);
}
