#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "support/device_reference.h"

/// Where a USB device, or the composite device that it is a function of, is plugged in.
struct UsbPort {
    DeviceReference hub; ///< physical device object of the hub
    ULONG number = 0;    ///< 0xFFFFFFFF when the bus did not tell
};

/// The port that the device itself is plugged into: its parent is the hub. As findUsbPort otherwise.
NTSTATUS findOwnUsbPort(WDFDEVICE owner, PDEVICE_OBJECT physicalDevice, UsbPort &port);

/// Finds the port of a device from its place in the tree and its hardware ids: a composite parent's own port, for a
/// function that of its parent. STATUS_UNSUCCESSFUL when an ancestor is missing, else the status of asking for the port
/// number through `owner`. `port` is written on success only. PASSIVE_LEVEL.
NTSTATUS findUsbPort(WDFDEVICE owner, PDEVICE_OBJECT physicalDevice, const UNICODE_STRING &hardwareIds, UsbPort &port);
