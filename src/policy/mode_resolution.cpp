#include "policy/mode_resolution.h"

#include "control/service_channel.h"
#include "driver/driver_context.h"
#include "driver/usb_filter_device.h"
#include "log/log.h"

namespace {

constexpr ULONG modeFallbackWithoutService = 2;
constexpr ULONG fallbackReadOnly = 1;

/// The service's answer, without a range check.
NTSTATUS askService(const ControlDevice &control, ServiceMessage &message, UsbMode &mode) {
    LOG_INFO(L"retreiveUsbMode Callback mode is avaliable so try to get usb mode from there");
    const bool registered = isServiceRegistered(control);
    LOG_INFO(L"Send callback, m_apiRegistered = ", flag(registered));
    if (!registered) {
        return STATUS_SUCCESS; // it left just now: no decision, and neither rules nor fallback
    }
    ULONG answer = 0;
    const NTSTATUS status = sendCallback(control, message, answer);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    mode = static_cast<UsbMode>(answer);
    LOG_INFO(L"Send callback, mode = ", decimal(answer));
    return STATUS_SUCCESS;
}

UsbMode modeFromRules(RuleStorage &rules, const UsbFilterDevice &filter) {
    const UNICODE_STRING serial = fieldText(filter.message.serialNumber, ARRAYSIZE(filter.message.serialNumber));
    if (rules.isAllowed(filter.hardwareIds, serial)) {
        return UsbMode::Allowed;
    }
    return rules.isReadOnly(filter.hardwareIds, serial) ? UsbMode::ReadOnly : UsbMode::Blocked;
}

} // namespace

NTSTATUS retreiveUsbMode(UsbFilterDevice &filter, UsbMode &mode) {
    mode = UsbMode::Unknown;
    if (filter.filterable == 0) {
        LOG_INFO(L"retreiveUsbMode Device is not filterable so it will be allowed");
        mode = UsbMode::Allowed;
        return STATUS_SUCCESS;
    }
    const ControlDevice *control = findControlDevice();
    if (control == nullptr) {
        LOG_INFO(L"retreiveUsbMode Control device is not avaliable so it will be blocked");
        mode = UsbMode::Blocked;
        return STATUS_SUCCESS;
    }
    DriverContext &context = getDriverContext();
    if (context.callbackMode != 0 && isServiceRegistered(*control)) {
        return askService(*control, filter.message, mode);
    }
    LOG_INFO(L"Try to get usb mode from rule storage");
    (void)context.ruleStorage.reload();
    if (context.callbackMode == modeFallbackWithoutService) {
        mode = context.callbackFallbackAction == fallbackReadOnly ? UsbMode::ReadOnly : UsbMode::Blocked;
        return STATUS_SUCCESS;
    }
    mode = modeFromRules(context.ruleStorage, filter);
    return STATUS_SUCCESS;
}
