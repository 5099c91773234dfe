#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Decides from a new device's identifiers which kind of device object it gets: the control device for the driver's own
/// root node, a filter for what the driver judges, or none. PASSIVE_LEVEL, in a Plug and Play thread.
EVT_WDF_DRIVER_DEVICE_ADD onDriverDeviceAdd;
