#include "device/storage_message.h"

#include <initguid.h>

#include <devpkey.h>

#include "device/device_properties.h"
#include "device/storage_device_info.h"
#include "log/log.h"

namespace {

NTSTATUS fillFromDescriptor(PDEVICE_OBJECT physicalDevice, ServiceMessage &message) {
    StorageDeviceInfo info;
    const NTSTATUS status = getStorageDeviceInfo(physicalDevice, info);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get disk info, status = 0x", hex(status));
        return status;
    }
    message.deviceType = MYRTELHAVEN_DEVICE_TYPE_DISK;
    copyToField(message.serialNumber, info.serialNumber);
    copyToField(message.release, info.productRevision);
    copyToField(message.deviceName, info.productId);
    copyToField(message.manufacturer, info.vendorId);
    return STATUS_SUCCESS;
}

NTSTATUS fillDescription(PDEVICE_OBJECT physicalDevice, ServiceMessage &message) {
    KString description;
    const NTSTATUS status = getDeviceProperty(physicalDevice, DevicePropertyDeviceDescription, description);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get deviceDescription, status = 0x", hex(status));
        return status;
    }
    copyToField(message.description, description);
    return STATUS_SUCCESS;
}

NTSTATUS fillInstancePath(PDEVICE_OBJECT physicalDevice, ServiceMessage &message) {
    KString instancePath;
    const NTSTATUS status = getDevicePropertyData(physicalDevice, DEVPKEY_Device_InstanceId, instancePath);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get deviceInstancePath, status = 0x", hex(status));
        return status;
    }
    copyToField(message.identity, instancePath);
    return STATUS_SUCCESS;
}

template<size_t N>
UNICODE_STRING shown(const WCHAR (&field)[N]) {
    return fieldText(field, N);
}

} // namespace

NTSTATUS getDiskInfo(PDEVICE_OBJECT physicalDevice, ServiceMessage &message) {
    NTSTATUS status = fillFromDescriptor(physicalDevice, message);
    if (NT_SUCCESS(status)) {
        status = fillDescription(physicalDevice, message);
    }
    if (NT_SUCCESS(status)) {
        status = fillInstancePath(physicalDevice, message);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    LOG_INFO(L"SerialNumber=", shown(message.serialNumber), L", deviceName=", shown(message.deviceName),
             L", deviceDescription=", shown(message.description), L", deviceInstancePath=", shown(message.identity),
             L", vendorId=", decimal(message.vendorId), L", productId=", decimal(message.productId),
             L", ProductRevision=", shown(message.release));
    return STATUS_SUCCESS;
}
