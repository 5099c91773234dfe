#pragma once

#include <ntifs.h>

/// Puts an entry that denies FILE_WRITE_DATA to everyone in front of the DACL of a device object, so that later opens
/// for writing fail. Lasts until the device is removed. Fails when the device has no DACL, or one that does not fit
/// into 256 bytes with the new entry. PASSIVE_LEVEL.
NTSTATUS denyWriteToEveryone(PDEVICE_OBJECT device);

/// The same unless that entry is already the first one: for use after something may have replaced the DACL.
NTSTATUS ensureWriteDenied(PDEVICE_OBJECT device);
