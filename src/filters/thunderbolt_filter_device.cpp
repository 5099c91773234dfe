#include "filters/thunderbolt_filter_device.h"

#include "control/service_channel.h"
#include "device/capabilities.h"
#include "device/device_state.h"
#include "device/device_tree.h"
#include "device/pci_topology.h"
#include "device/storage_message.h"
#include "driver/add_device_hook.h"
#include "driver/driver_context.h"
#include "filters/storage_filter.h"
#include "log/log.h"
#include "policy/usb_mode.h"

namespace {

/// The disk itself usually says no; what it is plugged in with may say yes.
NTSTATUS requireRemovable(WDFDEVICE device, PDEVICE_OBJECT physicalDevice) {
    DEVICE_CAPABILITIES capabilities;
    NTSTATUS status = queryCapabilities(device, physicalDevice, capabilities);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get device capabilities, status = 0x", hex(status));
        return status;
    }
    if (capabilities.Removable) {
        return STATUS_SUCCESS;
    }
    const DeviceReference parent = getParentDevice(physicalDevice);
    status = parent ? queryCapabilities(device, parent.get(), capabilities) : STATUS_UNSUCCESSFUL;
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get device capabilities for parent pdo, status = 0x", hex(status));
        return status;
    }
    if (!capabilities.Removable) {
        LOG_ERROR(L"Incorrect device type, must be removable");
        return STATUS_BAD_DEVICE_TYPE;
    }
    return STATUS_SUCCESS;
}

NTSTATUS requireExternalDisk(WDFDEVICE device, PDEVICE_OBJECT physicalDevice) {
    const NTSTATUS status = requireRemovable(device, physicalDevice);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (!isConnectedToPciePorts(physicalDevice)) {
        LOG_ERROR(L"Incorrect device type, must be connected to PCIe prots");
        return STATUS_BAD_DEVICE_TYPE;
    }
    return STATUS_SUCCESS;
}

/// Allowed is asked before read-only; what is on neither list is blocked.
NTSTATUS applyRules(WDFDEVICE device, const UNICODE_STRING &hardwareIds, UsbMode &mode) {
    ThunderboltRuleStorage &rules = getDriverContext().thunderboltRuleStorage;
    if (rules.isAllowed(hardwareIds)) {
        LOG_INFO(L"Allowed device, hardwareIds = ", hardwareIds);
        mode = UsbMode::Allowed;
        return STATUS_SUCCESS;
    }
    if (rules.isReadOnly(hardwareIds)) {
        const NTSTATUS status = makeReadOnly(device);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        LOG_INFO(L"Read-only device, hardwareIds = ", hardwareIds);
        mode = UsbMode::ReadOnly;
        return STATUS_SUCCESS;
    }
    LOG_INFO(L"Blocked device, hardwareIds = ", hardwareIds);
    disableDevice(device);
    mode = UsbMode::Blocked;
    return STATUS_SUCCESS;
}

NTSTATUS judge(WDFDEVICE device, PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &hardwareIds) {
    NTSTATUS status = getDriverContext().thunderboltRuleStorage.reload();
    if (!NT_SUCCESS(status)) {
        return status;
    }
    // 1.5 KB, the one large thing on this stack. Aligned, since a packed structure is not.
    alignas(ULONG64) ServiceMessage message{};
    status = getDiskInfo(physicalDevice, message);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    UsbMode mode = UsbMode::Unknown;
    status = applyRules(device, hardwareIds, mode);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    message.mode = static_cast<ULONG>(mode);
    message.ruleType = static_cast<ULONG>(ruleTypeOf(mode));
    if (const ControlDevice *control = findControlDevice(); control != nullptr) {
        (void)sendNotification(*control, message);
    }
    return STATUS_SUCCESS;
}

} // namespace

NTSTATUS createThunderboltFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"Create ThunderboltFilterDevice, hardwareIds = ", hardwareIds);
    PDEVICE_OBJECT physicalDevice = WdfFdoInitWdmGetPhysicalDevice(deviceInit);
    if (physicalDevice == nullptr) {
        LOG_ERROR(L"Failed to get pdo");
        return STATUS_INVALID_PARAMETER;
    }
    WDFDEVICE device = nullptr;
    NTSTATUS status = createStorageFilter(deviceInit, device);
    if (NT_SUCCESS(status)) {
        status = requireExternalDisk(device, physicalDevice);
    }
    if (!NT_SUCCESS(status)) {
        return status; // hidden by the framework: an internal disk starts without the filter
    }
    status = judge(device, physicalDevice, hardwareIds);
    if (!NT_SUCCESS(status)) {
        noteFailedAdd(physicalDevice, status);
    }
    return status;
}
