#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Puts a filter on an NVMe disk behind a Thunderbolt port, decides by the rules for such disks, enforces that and
/// tells the service. `hardwareIds` is the whole list. STATUS_BAD_DEVICE_TYPE for any other NVMe disk, the internal
/// ones above all: the framework hides that failure from Plug and Play, and the disk works without the filter. What
/// fails once the disk is known to be external keeps it from starting. PASSIVE_LEVEL, inside device add.
NTSTATUS createThunderboltFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds);
