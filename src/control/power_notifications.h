#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Registers for the change to low power of a device (state 0x31A). Only a log line comes of it. A failure is logged.
/// PASSIVE_LEVEL, before the device is created.
void registerPowerNotifications(PWDFDEVICE_INIT deviceInit);
