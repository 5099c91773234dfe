#include "control/reconnect_search.h"

#include "device/device_classes.h"
#include "device/device_properties.h"
#include "device/device_tree.h"
#include "device/driver_devices.h"
#include "driver/driver_context.h"
#include "driver/usb_filter_device.h"
#include "log/log.h"
#include "policy/mode_resolution.h"

namespace {

/// Adds the parents of a composite driver's devices, each once. The driver of one composite device is the driver of all
/// of them, and its devices are their functions together: each function that changes takes its own parent along, not
/// the composite device by which the walk happened to come.
NTSTATUS appendParents(const ReconnectList &functions, ReconnectList &list) {
    return functions.forEach([&](PDEVICE_OBJECT function) {
        const DeviceReference parent = getParentDevice(function);
        return parent && !list.contains(parent.get()) ? list.append(parent.get()) : STATUS_SUCCESS;
    });
}

/// Adds what is below a hub or composite device and driven by another driver than the one being walked.
NTSTATUS searchBelow(PDEVICE_OBJECT device, bool isComposite, const UNICODE_STRING &walked, VisitedDrivers &visited,
                     ReconnectList &list) {
    const auto top = DeviceReference::adopt(IoGetAttachedDeviceReference(device));
    PDRIVER_OBJECT driver = top.get()->DriverObject;
    if (equalIgnoringCase(driver->DriverName, walked) || visited.contains(driver)) {
        return STATUS_SUCCESS;
    }
    NTSTATUS status = visited.insert(driver);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ReconnectList below;
    status = getDevicesToReconnect(driver->DriverName, visited, below);
    if (!NT_SUCCESS(status) || below.empty()) {
        return status;
    }
    return isComposite ? appendParents(below, list) : list.append(device);
}

NTSTATUS appendIfModeDiffers(PDEVICE_OBJECT device, UsbFilterDevice &filter, ReconnectList &list) {
    UsbMode mode = UsbMode::Unknown;
    const NTSTATUS status = retreiveUsbMode(filter, mode);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retreive usb mode, status = 0x", hex(status));
        return list.append(device);
    }
    return mode == filter.mode ? STATUS_SUCCESS : list.append(device);
}

/// A device without a filter is of a class that the driver does not filter, or came before the driver.
NTSTATUS appendIfBlockedById(PDEVICE_OBJECT device, ReconnectList &list) {
    DriverContext &context = getDriverContext();
    KString compatibleIds;
    if (NT_SUCCESS(getDeviceProperty(device, DevicePropertyCompatibleIDs, compatibleIds))) {
        (void)context.ruleStorage.reload(); // the registry is the only source of truth
        if (!context.ruleStorage.isFilterable(compatibleIds)) {
            return STATUS_SUCCESS;
        }
    }
    KString hardwareIds;
    const NTSTATUS status = getDeviceProperty(device, DevicePropertyHardwareID, hardwareIds);
    if (NT_SUCCESS(status)) {
        (void)context.blockedDevices.add(device, hardwareIds);
    } else {
        LOG_ERROR(L"Failed to get hardware id, status = 0x", hex(status));
    }
    return list.append(device);
}

NTSTATUS examine(PDEVICE_OBJECT device, const UNICODE_STRING &walked, VisitedDrivers &visited, ReconnectList &list) {
    const bool isComposite = isCompositeDevice(device);
    const bool hasOthersBelow = isComposite || isUsbHub(device);
    if (hasOthersBelow) {
        const NTSTATUS status = searchBelow(device, isComposite, walked, visited, list);
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    UsbFilterCopy filter;
    const NTSTATUS status = filter.take(device);
    if (NT_SUCCESS(status)) {
        return appendIfModeDiffers(device, filter.get(), list);
    }
    if (status != STATUS_NOT_FOUND) {
        LOG_ERROR(L"Failed to retreive usb mode, status = 0x", hex(status));
        return list.append(device);
    }
    return hasOthersBelow ? STATUS_SUCCESS : appendIfBlockedById(device, list);
}

} // namespace

NTSTATUS getDevicesToReconnect(const UNICODE_STRING &driverName, VisitedDrivers &visited, ReconnectList &list) {
    LOG_INFO(L"Get device to reconnect, driver name = ", driverName);
    DriverDevices devices;
    NTSTATUS status = devices.enumerate(driverName);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to enumerate driver devices, status = 0x", hex(status));
        return status;
    }
    for (PDEVICE_OBJECT device : devices) {
        if (!isEnumeratedPhysicalDevice(device)) {
            continue;
        }
        status = examine(device, driverName, visited, list);
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}
