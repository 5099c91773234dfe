#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Makes a filter device refuse writes: its default queue fails every write and reports the disk as write-protected.
/// Other control codes and all other requests go down the stack; reads never enter the driver. Logs a failure and
/// returns its status. PASSIVE_LEVEL, inside device add.
NTSTATUS initReadOnlyQueue(WDFDEVICE device);
