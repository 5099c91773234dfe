#include "control/ioctl_dispatch.h"

#include "control/control_device.h"
#include "control/device_listing.h"
#include "control/log_settings.h"
#include "control/request_pairing.h"
#include "control/rescan.h"
#include "control/service_channel.h"
#include "log/log.h"
#include "myrtelhaven_service.h"

namespace {

/// Moves the request to a manual queue, or completes it with the status that this fails with.
void park(WDFREQUEST request, WDFQUEUE queue) {
    const NTSTATUS status = WdfRequestForwardToIoQueue(request, queue);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to request forward to io queue, status = 0x", hex(status));
        WdfRequestComplete(request, status);
    }
}

ControlDevice &controlOf(WDFQUEUE queue) {
    return *getControlDevice(WdfIoQueueGetDevice(queue));
}

} // namespace

VOID onIoDeviceControl(WDFQUEUE queue, WDFREQUEST request, size_t, size_t, ULONG code) {
    LOG_INFO(L"onIoDeviceControl, ioctl code = ", decimal(code));
    switch (code) {
    case IOCTL_WAIT_NOTIFICATION:
    case IOCTL_WAIT_CALLBACK:
        park(request, controlOf(queue).m_ioctlQueue);
        break;
    case IOCTL_CALLBACK_REPLY:
        WdfRequestComplete(request, replyToCallback(controlOf(queue), request));
        break;
    case IOCTL_GET_PROCESSED_DEVICES:
        getProcessedDevices(controlOf(queue).device, request);
        break;
    case IOCTL_GET_NOT_USBHUB_DEVICES:
        getNotUsbHubDevices(request);
        break;
    case IOCTL_RESCAN_DEVICES:
        WdfRequestComplete(request, rescanDevices(controlOf(queue).m_rescanContext));
        break;
    case IOCTL_RELOAD_LOG_SETTINGS:
        WdfRequestComplete(request, reloadLogSettings());
        break;
    case IOCTL_PING:
        WdfRequestComplete(request, STATUS_SUCCESS);
        break;
    default:
        WdfRequestComplete(request, STATUS_INVALID_DEVICE_REQUEST);
        break;
    }
}

VOID onIoInternalDeviceControl(WDFQUEUE queue, WDFREQUEST request, size_t, size_t, ULONG code) {
    LOG_INFO(L"onIoInternalDeviceControl, ioctl code = ", decimal(code));
    switch (code) {
    case internalCallbackCode:
    case internalNotificationCode:
        park(request, controlOf(queue).m_internalIoctlQueue);
        break;
    default:
        WdfRequestComplete(request, STATUS_INVALID_DEVICE_REQUEST);
        break;
    }
}
