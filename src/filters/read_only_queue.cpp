#include "filters/read_only_queue.h"

#include <ntdddisk.h>

#include "log/log.h"

namespace {

VOID onWrite(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfRequestCompleteWithInformation(request, STATUS_ACCESS_DENIED, 0);
}

/// Hands the request to the driver below, which completes it.
void forward(WDFQUEUE queue, WDFREQUEST request) {
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET);
    if (!WdfRequestSend(request, WdfDeviceGetIoTarget(WdfIoQueueGetDevice(queue)), &options)) {
        WdfRequestComplete(request, WdfRequestGetStatus(request));
    }
}

VOID onDeviceControl(WDFQUEUE queue, WDFREQUEST request, size_t, size_t, ULONG controlCode) {
    // File systems ask this when they mount a volume, which they then mount read-only.
    if (controlCode == IOCTL_DISK_IS_WRITABLE) {
        WdfRequestComplete(request, STATUS_MEDIA_WRITE_PROTECTED);
        return;
    }
    forward(queue, request);
}

} // namespace

NTSTATUS initReadOnlyQueue(WDFDEVICE device) {
    LOG_INFO(L"Init queue");
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&config, WdfIoQueueDispatchParallel);
    config.EvtIoWrite = onWrite;
    config.EvtIoDeviceControl = onDeviceControl;
    const NTSTATUS status = WdfIoQueueCreate(device, &config, WDF_NO_OBJECT_ATTRIBUTES, WDF_NO_HANDLE);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to queue creating");
    }
    return status;
}
