#pragma once

#include <ntifs.h>

#include "device/usb_port.h"
#include "driver/usb_filter_device.h"
#include "log/kstring.h"

/// Fills the filter's message with what the hub and Plug and Play tell about the device. Stops at the first thing that
/// can't be had, logs it, and leaves the rest of the message as it is. PASSIVE_LEVEL.
void fillDeviceInformation(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, const UsbPort &port,
                           const UNICODE_STRING &compatibleIds);
