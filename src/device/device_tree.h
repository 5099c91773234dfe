#pragma once

#include <ntifs.h>

#include "support/device_reference.h"

/// The physical device object of the parent device node, referenced; empty at the root of the tree and for devices that
/// Plug and Play does not know. IRQL <= DISPATCH_LEVEL.
DeviceReference getParentDevice(PDEVICE_OBJECT device);

/// Name of the driver that owns the device object, e.g. "\Driver\USBHUB3".
const UNICODE_STRING &driverName(PDEVICE_OBJECT device);

/// Whether the driver that owns the device object is one of the USB hub drivers. PASSIVE_LEVEL.
bool isOwnedByHubDriver(PDEVICE_OBJECT device);
