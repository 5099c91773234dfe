#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Puts a filter on the disk of a USB device. The decision was taken for the USB device: unless it is allowed, the disk
/// becomes read-only. `hardwareIds` is the whole list. A failure must keep the disk from starting. PASSIVE_LEVEL,
/// inside device add.
NTSTATUS createDiskFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds);
