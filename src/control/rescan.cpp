#include "control/rescan.h"

#include <usbioctl.h>

#include "control/reconnect_search.h"
#include "device/device_classes.h"
#include "device/device_properties.h"
#include "device/device_tree.h"
#include "device/driver_devices.h"
#include "device/usb_port.h"
#include "driver/driver_context.h"
#include "log/log.h"

namespace {

NTSTATUS cyclePort(const UsbPort &port) {
    const auto top = DeviceReference::adopt(IoGetAttachedDeviceReference(port.hub.get()));
    if (!top) {
        return STATUS_UNSUCCESSFUL;
    }
    USB_CYCLE_PORT_PARAMS parameters{};
    parameters.ConnectionIndex = port.number;
    ULONG_PTR information = 0;
    return FsRtlIssueDeviceIoControl(top.get(), IOCTL_USB_HUB_CYCLE_PORT, 0, &parameters, sizeof(parameters),
                                     &parameters, sizeof(parameters), &information);
}

NTSTATUS reconnectDevice(WDFDEVICE controlDevice, PDEVICE_OBJECT device) {
    if (!getParentDevice(device)) {
        return STATUS_UNSUCCESSFUL;
    }
    KString hardwareIds;
    NTSTATUS status = getDeviceProperty(device, DevicePropertyHardwareID, hardwareIds);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    LOG_INFO(L"reconnectDevice, dev object = 0x", hexAddress(device), L", hardwareIds = ", hardwareIds);
    UsbPort port;
    status = isUsbHub(device) ? findOwnUsbPort(controlDevice, device, port)
                              : findUsbPort(controlDevice, device, hardwareIds, port);
    return NT_SUCCESS(status) ? cyclePort(port) : status;
}

NTSTATUS findDevices(ReconnectList &list) {
    VisitedDrivers visited;
    for (const UNICODE_STRING &name : hubDriverNames) {
        LOG_INFO(L"rescanDevices driverName = ", name);
        const NTSTATUS status = getDevicesToReconnect(name, visited, list);
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to get devices to reconnect, status = 0x", hex(status));
            return status;
        }
    }
    return STATUS_SUCCESS;
}

} // namespace

NTSTATUS rescanDevices(RescanContext &context) {
    getDriverContext().blockedDevices.releaseAll();
    ReconnectList list;
    const NTSTATUS status = findDevices(list);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    NTSTATUS result = STATUS_SUCCESS;
    (void)list.forEach([&](PDEVICE_OBJECT device) {
        const NTSTATUS reconnected = reconnectDevice(context.controlDevice, device);
        if (!NT_SUCCESS(reconnected)) {
            LOG_ERROR(L"Failed to reconnect device, status = 0x", hex(reconnected));
            result = reconnected;
        }
        return STATUS_SUCCESS;
    });
    return result;
}
