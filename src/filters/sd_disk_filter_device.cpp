#include "filters/sd_disk_filter_device.h"

#include "device/device_state.h"
#include "filters/storage_filter.h"
#include "log/log.h"
#include "policy/parameters.h"
#include "policy/usb_mode.h"

namespace {

NTSTATUS enforce(WDFDEVICE device, const UNICODE_STRING &hardwareIds, UsbMode mode) {
    switch (mode) {
    case UsbMode::Blocked:
        disableDevice(device);
        LOG_INFO(L"Blocked device, hardwareIds = ", hardwareIds);
        return STATUS_SUCCESS;
    case UsbMode::ReadOnly: {
        const NTSTATUS status = makeReadOnly(device);
        if (NT_SUCCESS(status)) {
            LOG_INFO(L"Read-only device, hardwareIds = ", hardwareIds);
        }
        return status;
    }
    default:
        LOG_INFO(L"Allowed device, hardwareIds = ", hardwareIds);
        return STATUS_SUCCESS;
    }
}

} // namespace

NTSTATUS createSdDiskFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"Create SdDiskFilterDevice, hardwareIds = ", hardwareIds);
    WDFDEVICE device = nullptr;
    NTSTATUS status = createStorageFilter(deviceInit, device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ULONG mode = 0;
    status = queryDwordValue(parametersKeyPath, L"SdCardMode", mode);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to read sd card rule. Sd card will be allow, status = 0x", hex(status));
        return STATUS_SUCCESS;
    }
    LOG_INFO(L"Read sd rule from the registry, sd mode = ", decimal(mode));
    return enforce(device, hardwareIds, static_cast<UsbMode>(mode));
}
