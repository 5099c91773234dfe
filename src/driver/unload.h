#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Takes the driver's name out of the nine class filter lists and sets demand start: a driver that unloads cleanly
/// leaves no registration behind, and no class whose devices fail for want of it. PASSIVE_LEVEL.
EVT_WDF_DRIVER_UNLOAD onDriverUnload;

/// Releases DriverContext when the framework deletes the driver object. PASSIVE_LEVEL.
EVT_WDF_OBJECT_CONTEXT_CLEANUP onDriverCleanup;
