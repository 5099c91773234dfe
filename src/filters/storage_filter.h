#pragma once

#include <ntifs.h>
#include <wdf.h>

/// What the filters on disks have in common. PASSIVE_LEVEL, inside device add.

/// Declares the device a filter and creates it, without a context. From here on the framework hides a failure of the
/// add from Plug and Play. Logs a failure and returns its status.
NTSTATUS createStorageFilter(PWDFDEVICE_INIT deviceInit, WDFDEVICE &device);

/// initReadOnlyQueue with the log line that every filter on a disk writes when it fails.
NTSTATUS makeReadOnly(WDFDEVICE device);
