#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Puts a filter on the disk of an SD card. The registry value SdCardMode decides for all cards: 1 blocked, 3
/// read-only, anything else, or none, allowed. `hardwareIds` is the whole list. A failure must keep the disk from
/// starting. PASSIVE_LEVEL, inside device add.
NTSTATUS createSdDiskFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds);
