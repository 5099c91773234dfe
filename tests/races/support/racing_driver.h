#pragma once

#include <ntifs.h>
#include <wdf.h>

#include <functional>

namespace races {

/// What two device adds of a small driver share, and the locks they may use.
struct Shared {
    int count = 0;
    FAST_MUTEX fastMutex{};
    ERESOURCE resource{};
    KEVENT event{}; ///< synchronization event, signalled
    WDFWAITLOCK waitLock = nullptr;
};

/// Loads a small driver and plugs two devices at once; `count` is to be called for each, in the device add, and to add
/// one to Shared::count. Fails the test when the sum is wrong or something is left behind.
void runRacingDriver(const std::function<void(Shared &)> &count);

/// Waits until the other add is here too, each time anew. Orders nothing between the two threads.
void meetOther();

/// Runs it in one add after the other, and returns once both have. In an order of time only, of which ThreadSanitizer
/// knows nothing: two accesses at the very same moment can escape it, these can't.
void inTurn(const std::function<void()> &access);

} // namespace races
