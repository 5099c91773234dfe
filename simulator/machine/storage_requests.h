#pragma once

#include <ntifs.h>

namespace sim::machine {

/// Stops the run for a storage control code: no driver of this machine answers those, and a refusal would be a guess.
void refuseToGuessStorageRequest(ULONG controlCode);

} // namespace sim::machine
