#pragma once

#include <ntifs.h>

#include "myrtelhaven_service.h"

/// Fills the service's message with what a disk and Plug and Play tell about it; the caller zeroes the message before.
/// Texts are cut to their fields. Stops at the first thing that can't be had, logs it and returns its status; what was
/// filled before stays. PASSIVE_LEVEL.
NTSTATUS getDiskInfo(PDEVICE_OBJECT physicalDevice, ServiceMessage &message);
