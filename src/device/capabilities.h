#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Asks the stack of `target` for its capabilities, through an I/O target owned by `owner`. A bus driver that completes
/// the query with an error still counts as success, on purpose: Address then stays 0xFFFFFFFF. Fails only when the
/// query could not be sent. PASSIVE_LEVEL.
NTSTATUS queryCapabilities(WDFDEVICE owner, PDEVICE_OBJECT target, DEVICE_CAPABILITIES &capabilities);
