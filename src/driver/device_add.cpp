#include "driver/device_add.h"

#include <ntddstor.h>

#include "device/storage_device_info.h"
#include "driver/add_device_hook.h"
#include "driver/driver_context.h"
#include "driver/init_properties.h"
#include "driver/usb_filter_device.h"
#include "filters/disk_filter_device.h"
#include "filters/sd_disk_filter_device.h"
#include "filters/thunderbolt_filter_device.h"
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

/// Runs an add whose failure must keep the device from starting, and passes its status on.
template<typename Create>
NTSTATUS addOrRefuse(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds, Create create) {
    PDEVICE_OBJECT physicalDevice = WdfFdoInitWdmGetPhysicalDevice(deviceInit);
    const NTSTATUS status = create(deviceInit, hardwareIds);
    if (!NT_SUCCESS(status)) {
        noteFailedAdd(physicalDevice, status);
    }
    return status;
}

/// A disk whose descriptor can't be read does not start: it is no filter's device yet, so its failure is not hidden.
NTSTATUS addDisk(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    StorageDeviceInfo disk;
    const NTSTATUS status = getStorageDeviceInfo(WdfFdoInitWdmGetPhysicalDevice(deviceInit), disk);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    LOG_INFO(L"Disk information busType = ", decimal(disk.busType), L", isRemovable = ", flag(disk.removable));
    if (disk.busType == BusTypeUsb) {
        return addOrRefuse(deviceInit, hardwareIds, createDiskFilterDevice);
    }
    if (disk.removable) {
        return addOrRefuse(deviceInit, hardwareIds, createSdDiskFilterDevice);
    }
    // Internal NVMe disks end there with a failure, which must not keep them from starting.
    return disk.busType == BusTypeNvme ? createThunderboltFilterDevice(deviceInit, hardwareIds) : STATUS_SUCCESS;
}

/// Devices that USB did not enumerate: of these only disk drives concern the driver.
NTSTATUS addOtherDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    KString classGuid;
    const NTSTATUS status = getInitProperty(deviceInit, DevicePropertyClassGuid, classGuid);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const bool isDisk = equalIgnoringCase(classGuid, literal(L"{4d36e967-e325-11ce-bfc1-08002be10318}"));
    return isDisk ? addDisk(deviceInit, hardwareIds) : STATUS_SUCCESS;
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
    return isUsbEnumerated(deviceInit) ? addOrRefuse(deviceInit, hardwareIds, createUsbFilterDevice)
                                       : addOtherDevice(deviceInit, hardwareIds);
}
