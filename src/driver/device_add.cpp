#include "driver/device_add.h"

#include "driver/add_device_hook.h"
#include "driver/driver_context.h"
#include "driver/init_properties.h"
#include "driver/usb_filter_device.h"
#include "install/registry_updater.h"
#include "log/log.h"

namespace {

/// At most one control device per load; each start of it repairs the driver's registration as class filter.
NTSTATUS addControlNode(PWDFDEVICE_INIT deviceInit) {
    if (findControlDevice() != nullptr) {
        return STATUS_SUCCESS;
    }
    const NTSTATUS status = createControlDevice(deviceInit);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    (void)setDriverStartType(StartType::boot);
    addClassFilters();
    return STATUS_SUCCESS;
}

/// Devices that USB did not enumerate: of these only disk drives concern the driver.
NTSTATUS addOtherDevice(PWDFDEVICE_INIT deviceInit) {
    KString classGuid;
    const NTSTATUS status = getInitProperty(deviceInit, DevicePropertyClassGuid, classGuid);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    return STATUS_SUCCESS;
}

NTSTATUS addUsbDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    PDEVICE_OBJECT physicalDevice = WdfFdoInitWdmGetPhysicalDevice(deviceInit);
    const NTSTATUS status = createUsbFilterDevice(deviceInit, hardwareIds);
    if (!NT_SUCCESS(status)) {
        noteFailedAdd(physicalDevice, status);
    }
    return status;
}

} // namespace

NTSTATUS onDriverDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT deviceInit) {
    KString hardwareIds;
    const NTSTATUS status = getInitProperty(deviceInit, DevicePropertyHardwareID, hardwareIds);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get hardware ids, status = 0x", hex(status));
        return status;
    }
    LOG_INFO(L"onDriverDeviceAdd hardwareIds = ", hardwareIds);
    // Compared whole: a list with further ids holds separators and never is the control node's.
    if (equalCaseSensitive(hardwareIds, literal(L"Tarvenholt\\Myrtelhaven"))) {
        return addControlNode(deviceInit);
    }
    return isUsbEnumerated(deviceInit) ? addUsbDevice(deviceInit, hardwareIds) : addOtherDevice(deviceInit);
}
