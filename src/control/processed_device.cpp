#include "control/processed_device.h"

#include <initguid.h>

#include <devpkey.h>

#include "device/device_properties.h"
#include "device/usb_descriptors.h"
#include "device/usb_port.h"
#include "log/log.h"
#include "support/framework_guards.h"
#include "support/text.h"

namespace {

/// The parts of an instance id such as USB\VID_1234&PID_5678\0001.
struct InstanceId {
    UNICODE_STRING vendor;
    UNICODE_STRING product;
    UNICODE_STRING serial;
};

/// Cuts `rest` behind the first `mark`; what was before it is returned in `before`. False when there is none.
bool cutAt(WCHAR mark, UNICODE_STRING &rest, UNICODE_STRING &before) {
    const USHORT count = characterCount(rest);
    for (USHORT index = 0; index < count; ++index) {
        if (rest.Buffer[index] == mark) {
            before = part(rest, 0, index);
            rest = part(rest, static_cast<USHORT>(index + 1), static_cast<USHORT>(count - index - 1));
            return true;
        }
    }
    return false;
}

/// The text between the next '_' and the `end` after it.
bool takeField(WCHAR end, UNICODE_STRING &rest, UNICODE_STRING &field) {
    UNICODE_STRING ignored{};
    return cutAt(L'_', rest, ignored) && cutAt(end, rest, field);
}

bool parseInstanceId(const UNICODE_STRING &text, InstanceId &id) {
    UNICODE_STRING rest = text;
    if (!takeField(L'&', rest, id.vendor)) {
        LOG_ERROR(L"Failed to get vid");
        return false;
    }
    if (!takeField(L'\\', rest, id.product)) {
        LOG_ERROR(L"Failed to get pid");
        return false;
    }
    id.serial = rest;
    return true;
}

ULONG hexValue(const UNICODE_STRING &digits) {
    ULONG value = 0;
    (void)RtlUnicodeStringToInteger(&digits, 16, &value);
    return value;
}

NTSTATUS getManufacturer(WDFDEVICE controlDevice, PDEVICE_OBJECT device, KString &manufacturer) {
    UsbPort port;
    NTSTATUS status = findOwnUsbPort(controlDevice, device, port);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const auto top = DeviceReference::adopt(IoGetAttachedDeviceReference(port.hub.get()));
    DeviceIoTarget hub;
    status = hub.open(controlDevice, top.get());
    if (!NT_SUCCESS(status)) {
        return status;
    }
    USB_DEVICE_DESCRIPTOR descriptor{};
    status = getUsbDeviceDescriptor(hub.get(), port.number, descriptor);
    if (NT_SUCCESS(status)) {
        getUsbStringDescriptor(hub.get(), port.number, descriptor.iManufacturer, manufacturer);
    }
    return status;
}

NTSTATUS getName(PDEVICE_OBJECT device, KString &name) {
    NTSTATUS status = getDevicePropertyData(device, DEVPKEY_Device_BusReportedDeviceDesc, name);
    if (!NT_SUCCESS(status) || name.empty()) {
        status = getDeviceProperty(device, DevicePropertyDeviceDescription, name);
    }
    if (!NT_SUCCESS(status) || name.empty()) {
        status = getDevicePropertyData(device, DEVPKEY_Device_FriendlyName, name);
    }
    return status;
}

} // namespace

void fillProcessedDevice(WDFDEVICE controlDevice, PDEVICE_OBJECT device, ProcessedDeviceInfo &record) {
    KString instanceId;
    NTSTATUS status = getDevicePropertyData(device, DEVPKEY_Device_InstanceId, instanceId);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get instanseId, status = 0x", hex(status));
        return;
    }
    InstanceId id{};
    if (!parseInstanceId(instanceId, id)) {
        LOG_ERROR(L"Failed to parse device instanceId");
        return;
    }
    LOG_INFO(L"fill device info, instanceId = ", instanceId);
    KString manufacturer;
    status = getManufacturer(controlDevice, device, manufacturer);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get device manufacturer name, status = 0x", hex(status));
    }
    KString name;
    status = getName(device, name);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get device name, status = 0x", hex(status));
    }
    record.vendorId = hexValue(id.vendor);
    record.productId = hexValue(id.product);
    record.valid = 1;
    copyToField(record.serialNumber, id.serial);
    copyToField(record.deviceName, name);
    copyToField(record.manufacturer, manufacturer);
}
