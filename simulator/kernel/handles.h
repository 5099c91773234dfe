#pragma once

#include <ntifs.h>

namespace sim {

/// A handle made in a user's process without OBJ_KERNEL_HANDLE is the user's to close and to abuse: bugCheck.
/// learn.microsoft.com: ObOpenObjectByPointer.
void requireKernelHandle(ULONG attributes, const char *routine, const void *callSite);

} // namespace sim
