#pragma once

#include <ntifs.h>
#include <wdf.h>

/// A process opens the control device: the first one becomes the registered service, its further opens are counted,
/// any other process gets STATUS_ACCESS_DENIED. PASSIVE_LEVEL, in the opening thread.
EVT_WDF_DEVICE_FILE_CREATE onControlDeviceOpen;

/// A handle was closed; with the last one the service is no longer registered. PASSIVE_LEVEL.
EVT_WDF_FILE_CLOSE onControlDeviceClose;
