#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "control/control_device.h"

/// Pairs parked service requests with the filters' internal requests. Ready-notify callback of both queues; may be
/// entered on several threads, and nested by a requeue. PASSIVE_LEVEL.
EVT_WDF_IO_QUEUE_STATE fetchRequestsAndProcess;

/// Completes the pending question that an IOCTL_CALLBACK_REPLY answers. Returns what the reply itself completes with:
/// the failing step's status when the id is not known (any more). PASSIVE_LEVEL.
NTSTATUS replyToCallback(const ControlDevice &control, WDFREQUEST replyRequest);
