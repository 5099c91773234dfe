#pragma once

#include <ntifs.h>

struct UsbFilterDevice;
enum class UsbMode : ULONG;

/// Decides what happens to a USB device: the service when it is asked and registered, else the rules. Reads the
/// device's filterable flag, hardware ids and message. `mode` is always written; a failure, with mode Unknown, means
/// that the service was asked and did not answer. May block for CallbackTimeout seconds. PASSIVE_LEVEL.
NTSTATUS retreiveUsbMode(UsbFilterDevice &filter, UsbMode &mode);
