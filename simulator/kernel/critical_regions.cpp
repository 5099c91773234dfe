// Critical regions: normal kernel APCs off.

#include "lock_accounting.h"
#include "thread.h"
#include "violation.h"

using namespace sim;

// learn.microsoft.com: KeEnterCriticalRegion
extern "C" VOID KeEnterCriticalRegion() {
    requireIrqlAtMost(APC_LEVEL, "KeEnterCriticalRegion", SIM_CALL_SITE);
    ++currentThread().criticalRegionDepth;
}

// learn.microsoft.com: KeLeaveCriticalRegion
extern "C" VOID KeLeaveCriticalRegion() {
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, "KeLeaveCriticalRegion", callSite);
    KernelThread &thread = currentThread();
    if (thread.criticalRegionDepth == 0) {
        bugCheck("critical region", "KeLeaveCriticalRegion", "left without having been entered", callSite);
    }
    --thread.criticalRegionDepth;
    requireResourcesProtected("KeLeaveCriticalRegion", callSite);
}
