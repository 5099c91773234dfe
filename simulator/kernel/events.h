#pragma once

#include <ntifs.h>

namespace sim {

/// KeSetEvent without its checks of the caller, for the machine's own use.
void signalEvent(PKEVENT event);
/// KeWaitForSingleObject without time-out and without its checks, for the machine's own use.
void awaitEvent(PKEVENT event);

} // namespace sim
