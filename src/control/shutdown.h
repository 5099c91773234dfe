#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Has the control device see IRP_MJ_SHUTDOWN before the framework does. A failure is logged. PASSIVE_LEVEL, before the
/// device is created.
void registerShutdownHandler(PWDFDEVICE_INIT deviceInit);
