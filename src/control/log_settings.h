#pragma once

#include <ntifs.h>

/// IOCTL_RELOAD_LOG_SETTINGS: reads the log level again; a level that can't be read is 0, which turns the log off.
/// Returns the status of the read. PASSIVE_LEVEL.
NTSTATUS reloadLogSettings();
