#pragma once

#include <ntifs.h>
#include <wdf.h>

/// IOCTL_GET_PROCESSED_DEVICES: lists the devices below the USB hubs, hubs left out, and completes the request.
/// `controlDevice` owns what is opened meanwhile. PASSIVE_LEVEL.
void getProcessedDevices(WDFDEVICE controlDevice, WDFREQUEST request);

/// IOCTL_GET_NOT_USBHUB_DEVICES: copies the text of devices below no USB hub, cut to the buffer, and completes the
/// request. PASSIVE_LEVEL.
void getNotUsbHubDevices(WDFREQUEST request);
