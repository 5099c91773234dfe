#pragma once

#include <ntifs.h>

#include "control/control_device.h"

/// Has every USB device re-enumerated, by cycling its hub port, whose decision would differ under the policy as it is
/// now, or that is blocked by a compatible id and has no filter. Does nothing but fail with
/// STATUS_OBJECT_NAME_NOT_FOUND where one of the two hub drivers is not loaded. Ports that can't be cycled do not keep
/// the others from it; the last one's status is returned. PASSIVE_LEVEL; may run several times at once.
NTSTATUS rescanDevices(RescanContext &context);
