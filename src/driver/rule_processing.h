#pragma once

#include <ntifs.h>

#include "driver/usb_filter_device.h"

/// Learns who the device is, decides its mode, enforces the mode and tells the service. Logs what fails; a failure must
/// keep the device from starting. PASSIVE_LEVEL, inside device add.
NTSTATUS processRules(UsbFilterDevice &filter);
