#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Requests of the service. Runs in the caller's thread, several at once. PASSIVE_LEVEL.
EVT_WDF_IO_QUEUE_IO_DEVICE_CONTROL onIoDeviceControl;

/// Questions and notifications that filters send through the control device's target. PASSIVE_LEVEL.
EVT_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL onIoInternalDeviceControl;
