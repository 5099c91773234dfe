#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "log/kstring.h"

/// Reads a property of the device that is being added. Trailing NULs are cut; a multi-string keeps its inner ones. A
/// property of zero length is success with an empty string. Returns the query's status, or that of the reservation.
/// PASSIVE_LEVEL, before the device is created.
NTSTATUS getInitProperty(PWDFDEVICE_INIT deviceInit, DEVICE_REGISTRY_PROPERTY property, KString &out);

/// Whether the USB bus enumerated the device ("USB" exactly). A failed query counts as no.
bool isUsbEnumerated(PWDFDEVICE_INIT deviceInit);
