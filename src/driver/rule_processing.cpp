#include "driver/rule_processing.h"

#include "control/service_channel.h"
#include "device/device_classes.h"
#include "device/device_properties.h"
#include "device/device_state.h"
#include "device/device_tree.h"
#include "device/identifiers.h"
#include "driver/deny_write_security.h"
#include "driver/device_information.h"
#include "driver/driver_context.h"
#include "log/log.h"
#include "policy/mode_resolution.h"

namespace {

/// Whether enforcement ends with telling the service.
enum class Notify { yes, no };

bool isPortableDeviceClass(PDEVICE_OBJECT physicalDevice) {
    KString classGuid;
    return NT_SUCCESS(getDeviceProperty(physicalDevice, DevicePropertyClassGuid, classGuid)) &&
           equalIgnoringCase(classGuid, literal(L"{eec5ad98-8080-425f-922a-dabf3de3f69a}"));
}

bool hasId(const UNICODE_STRING &compatibleIds, const UNICODE_STRING &wanted) {
    return anyOfMultiSz(compatibleIds,
                        [&](const UNICODE_STRING &id) { return equalCaseSensitive(idWithoutBus(id), wanted); });
}

/// Phones and cameras that speak MTP or PTP.
bool isMediaTransferDevice(PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &compatibleIds) {
    return hasId(compatibleIds, literal(L"MS_COMP_MTP")) || hasId(compatibleIds, literal(L"MS_COMP_PTP")) ||
           (hasId(compatibleIds, literal(L"Class_06&SubClass_01&Prot_01")) && isPortableDeviceClass(physicalDevice));
}

Notify enforceBlocked(UsbFilterDevice &filter) {
    disableDevice(filter.device);
    LOG_INFO(L"Process rules, UsbMode::Blocked, hardwareIds = ", filter.hardwareIds);
    BlockedDeviceRegister &blockedDevices = getDriverContext().blockedDevices;
    if (!blockedDevices.contains(filter.hardwareIds)) {
        return Notify::yes;
    }
    blockedDevices.remove(filter.hardwareIds); // a rescan cycled it; the service knows it already
    return Notify::no;
}

NTSTATUS enforceReadOnly(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &compatibleIds) {
    if (isMediaTransferDevice(physicalDevice, compatibleIds)) {
        LOG_INFO(L"Process rules, UsbMode::ReadOnly, mtp or ptp, name = ", driverName(physicalDevice));
        const NTSTATUS status = denyWriteToEveryone(physicalDevice);
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to make mtp or ptp read only, status = 0x", hex(status));
            getDriverContext().blockedDevices.remove(filter.hardwareIds);
        }
        filter.denyWrite = true;
        return status;
    }
    if (!isMassStorageDevice(physicalDevice)) { // mass storage is left to its disk
        LOG_INFO(L"Process rules, UsbMode::ReadOnly, mass storage, block later, name = ", driverName(physicalDevice));
        filter.mode = UsbMode::Blocked; // the rule type stays read-only
        disableDevice(filter.device);
    }
    return STATUS_SUCCESS;
}

void decideRuleType(UsbFilterDevice &filter) {
    filter.ruleType = ruleTypeOf(filter.mode);
    if (filter.mode != UsbMode::ReadOnly) {
        return;
    }
    const bool unlisted = getDriverContext().ruleStorage.isReadOnlyUnlisted();
    LOG_INFO(L"Check request ReadOnlyUnlisted, result = ", flag(unlisted));
    if (unlisted) {
        filter.ruleType = RuleType::ReadOnlyUnlisted;
    }
}

NTSTATUS enforce(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &compatibleIds,
                 Notify &notify) {
    if (filter.filterable == 0) {
        filter.ruleType = RuleType::NotFilterable;
        return STATUS_SUCCESS;
    }
    decideRuleType(filter);
    if (filter.mode == UsbMode::Blocked) {
        notify = enforceBlocked(filter);
        if (notify == Notify::no) {
            return STATUS_SUCCESS;
        }
    } else if (filter.mode == UsbMode::ReadOnly) {
        const NTSTATUS status = enforceReadOnly(filter, physicalDevice, compatibleIds);
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    getDriverContext().blockedDevices.remove(filter.hardwareIds);
    return STATUS_SUCCESS;
}

void notifyService(UsbFilterDevice &filter) {
    filter.message.mode = static_cast<ULONG>(filter.mode);
    filter.message.ruleType = static_cast<ULONG>(filter.ruleType);
    if (const ControlDevice *control = findControlDevice(); control != nullptr) {
        (void)sendNotification(*control, filter.message);
    }
}

/// Who the device is, and whether the rules apply to it.
NTSTATUS identify(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, KString &compatibleIds) {
    UsbPort port;
    NTSTATUS status = findUsbPort(filter.device, physicalDevice, filter.hardwareIds, port);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = getDeviceProperty(physicalDevice, DevicePropertyCompatibleIDs, compatibleIds);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    RuleStorage &rules = getDriverContext().ruleStorage;
    (void)rules.reload();
    // The functions of a composite device are judged one by one, the parent never.
    filter.filterable = !isCompositeDevice(physicalDevice) && rules.isFilterable(compatibleIds) ? 1 : 0;
    fillDeviceInformation(filter, physicalDevice, port, compatibleIds);
    return STATUS_SUCCESS;
}

NTSTATUS decideAndEnforce(UsbFilterDevice &filter, Notify &notify) {
    PDEVICE_OBJECT physicalDevice = WdfDeviceWdmGetPhysicalDevice(filter.device);
    if (physicalDevice == nullptr) {
        return STATUS_UNSUCCESSFUL;
    }
    KString compatibleIds;
    NTSTATUS status = identify(filter, physicalDevice, compatibleIds);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = retreiveUsbMode(filter, filter.mode);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    return enforce(filter, physicalDevice, compatibleIds, notify);
}

} // namespace

NTSTATUS processRules(UsbFilterDevice &filter) {
    Notify notify = Notify::yes;
    const NTSTATUS status = decideAndEnforce(filter, notify);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to process rules, status = 0x", hex(status));
        return status;
    }
    if (notify == Notify::yes) {
        notifyService(filter);
    }
    return STATUS_SUCCESS;
}
