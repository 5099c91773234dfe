#include "control/service_channel.h"

#include "driver/driver_context.h"
#include "log/log.h"

namespace {

constexpr LONG64 unitsPerSecond = 10'000'000; // of 100 nanoseconds

/// Wraps memory of the caller that outlives the exchange, as a child of the request.
NTSTATUS wrapMemory(WDFREQUEST request, void *buffer, size_t bytes, WDFMEMORY &memory) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = request;
    return WdfMemoryCreatePreallocated(&attributes, buffer, bytes, &memory);
}

/// A request to the control device with the message as its input. After a successful exchange it is left to the
/// framework, which deletes it with the driver.
NTSTATUS prepareRequest(const ControlDevice &control, ServiceMessage &message, WDFREQUEST &request, WDFMEMORY &input) {
    NTSTATUS status = WdfRequestCreate(WDF_NO_OBJECT_ATTRIBUTES, control.m_ioTarget, &request);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create request, status = 0x", hex(status));
        return status;
    }
    status = wrapMemory(request, &message, sizeof(message), input);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to alloc memory, status = 0x", hex(status));
        WdfObjectDelete(request);
    }
    return status;
}

NTSTATUS sendAndWait(const ControlDevice &control, WDFREQUEST request) {
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, -(getDriverContext().callbackTimeout * unitsPerSecond));
    // The framework answers TRUE once the request was sent, also after a time-out: only its status tells the outcome.
    (void)WdfRequestSend(request, control.m_ioTarget, &options);
    return WdfRequestGetStatus(request);
}

} // namespace

NTSTATUS sendNotification(const ControlDevice &control, ServiceMessage &message) {
    const bool registered = isServiceRegistered(control);
    LOG_INFO(L"Send notification, device type = ", decimal(message.deviceType), L", device mode = ",
             decimal(message.mode), L", rule type = ", decimal(message.ruleType), L", m_apiRegistered = ",
             flag(registered), L", device name = ", fieldText(message.deviceName, ARRAYSIZE(message.deviceName)));
    if (!registered) {
        return STATUS_SUCCESS;
    }
    WDFREQUEST request = nullptr;
    WDFMEMORY input = nullptr;
    NTSTATUS status = prepareRequest(control, message, request, input);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to prepare notification, status = 0x", hex(status));
        return status;
    }
    status = WdfIoTargetFormatRequestForInternalIoctl(control.m_ioTarget, request, internalNotificationCode, input,
                                                      nullptr, nullptr, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to send notification request, status = 0x", hex(status));
        return status;
    }
    return sendAndWait(control, request);
}

NTSTATUS sendCallback(const ControlDevice &control, ServiceMessage &message, ULONG &answer) {
    WDFREQUEST request = nullptr;
    WDFMEMORY input = nullptr;
    NTSTATUS status = prepareRequest(control, message, request, input);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to prepare request, status = 0x", hex(status));
        return status;
    }
    CallbackReply reply{};
    WDFMEMORY output = nullptr;
    status = wrapMemory(request, &reply, sizeof(reply), output);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to preallocate memory, status = 0x", hex(status));
        return status;
    }
    status = WdfIoTargetFormatRequestForInternalIoctl(control.m_ioTarget, request, internalCallbackCode, input, nullptr,
                                                      output, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to build ioctl request, status = 0x", hex(status));
        return status;
    }
    status = sendAndWait(control, request);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to send ioctl request, status = 0x", hex(status));
        return status;
    }
    answer = reply.answer;
    return STATUS_SUCCESS;
}
