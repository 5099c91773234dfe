#include "lock_accounting.h"

#include "internals.h"
#include "thread.h"
#include "violation.h"

namespace sim {

void lockAcquired(LockKind kind, const void *lock, bool, const void *callSite) {
    KernelThread &thread = currentThread();
    ++thread.resourcesHeld;
    if (kind == LockKind::executiveResource) {
        ++thread.executiveResourcesHeld;
    }
    kernel().internals->lockOrder.acquired(kind, lock, callSite);
}

void lockReleased(LockKind kind, const void *lock, const void *) {
    KernelThread &thread = currentThread();
    --thread.resourcesHeld;
    if (kind == LockKind::executiveResource) {
        --thread.executiveResourcesHeld;
    }
    kernel().internals->lockOrder.released(lock);
}

void requireResourcesProtected(const char *routine, const void *callSite) {
    const KernelThread &thread = currentThread();
    if (thread.executiveResourcesHeld != 0 && thread.criticalRegionDepth == 0 && thread.irql < APC_LEVEL) {
        bugCheck("critical region", routine,
                 "the thread holds an executive resource " + std::to_string(thread.executiveResourcesHeld) +
                     " time(s) with normal kernel APCs enabled",
                 callSite);
    }
}

} // namespace sim
