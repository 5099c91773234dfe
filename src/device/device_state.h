#pragma once

#include <ntifs.h>
#include <wdf.h>

/// Disables the device and keeps it out of the user interface. Inside device add this acts once the stack has started:
/// Plug and Play then removes it with problem code 29, the filter with it. IRQL <= DISPATCH_LEVEL.
void disableDevice(WDFDEVICE device);
