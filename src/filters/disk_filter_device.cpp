#include "filters/disk_filter_device.h"

#include "device/device_tree.h"
#include "driver/usb_filter_device.h"
#include "filters/storage_filter.h"
#include "log/log.h"

NTSTATUS createDiskFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"DiskFilterDevice create, hardwareIds = ", hardwareIds);
    PDEVICE_OBJECT physicalDevice = WdfFdoInitWdmGetPhysicalDevice(deviceInit);
    if (physicalDevice == nullptr) {
        LOG_ERROR(L"Failed to get pdo");
        return STATUS_INVALID_PARAMETER;
    }
    const DeviceReference parent = getParentDevice(physicalDevice);
    if (!parent) {
        LOG_ERROR(L"Failed to get parent pdo");
        return STATUS_BAD_DEVICE_TYPE;
    }
    LOG_INFO(L"Try to create wdf device");
    WDFDEVICE device = nullptr;
    const NTSTATUS status = createStorageFilter(deviceInit, device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const UsbMode mode = usbModeOf(parent.get());
    LOG_INFO(L"Wdf device was successfully created. Check read only mode for parent device, usb mode = ",
             decimal(static_cast<ULONG>(mode)), L", pdo = 0x", hexAddress(physicalDevice));
    return mode == UsbMode::Allowed ? STATUS_SUCCESS : makeReadOnly(device);
}
