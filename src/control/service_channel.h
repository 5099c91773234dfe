#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "control/control_device.h"
#include "myrtelhaven_service.h"

/// The inverted call: a filter sends an internal request to the control device itself, where it is paired with a
/// request that the service parked. PASSIVE_LEVEL; senders wait up to CallbackTimeout seconds.

/// Internal control codes; the first has the number of the service's reply code, but arrives by another way.
inline constexpr ULONG internalCallbackCode = 0x22A004;
inline constexpr ULONG internalNotificationCode = 0x22A008;

/// Tells the service of a decision; does nothing while no service is registered.
NTSTATUS sendNotification(const ControlDevice &control, ServiceMessage &message);

/// Asks the service for the device's mode and waits for its reply. `answer` is written on success only.
/// STATUS_IO_TIMEOUT when the service did not answer in time.
NTSTATUS sendCallback(const ControlDevice &control, ServiceMessage &message, ULONG &answer);
