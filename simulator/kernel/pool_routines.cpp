// Pool allocation and release as drivers call it.

#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <bit>

#undef ExFreePool

using namespace sim;

namespace {

constexpr POOL_FLAGS poolKinds = POOL_FLAG_NON_PAGED | POOL_FLAG_NON_PAGED_EXECUTE | POOL_FLAG_PAGED;
constexpr POOL_FLAGS knownRequiredFlags = poolKinds | POOL_FLAG_USE_QUOTA | POOL_FLAG_UNINITIALIZED |
                                          POOL_FLAG_SESSION | POOL_FLAG_CACHE_ALIGNED | POOL_FLAG_RAISE_ON_FAILURE;
/// Flags in the high half are wishes: a system that does not know them ignores them.
constexpr POOL_FLAGS requiredFlags = 0xFFFFFFFFULL;

} // namespace

// learn.microsoft.com: ExAllocatePool2
extern "C" PVOID ExAllocatePool2(POOL_FLAGS flags, SIZE_T bytes, ULONG tag) {
    const void *callSite = SIM_CALL_SITE;
    const bool paged = (flags & POOL_FLAG_PAGED) != 0;
    requireIrqlAtMost(paged ? APC_LEVEL : DISPATCH_LEVEL, "ExAllocatePool2", callSite);
    if (bytes == 0) {
        bugCheck("pool size", "ExAllocatePool2", "zero bytes asked for", callSite);
    }
    if (std::popcount(flags & poolKinds) != 1) {
        bugCheck("pool kind", "ExAllocatePool2", "flags " + hex(flags) + " do not name exactly one kind of pool",
                 callSite);
    }
    const bool invalid = tag == 0 || (flags & requiredFlags & ~knownRequiredFlags) != 0;
    if (invalid || kernel().faults.shouldFail("ExAllocatePool2")) {
        if ((flags & POOL_FLAG_RAISE_ON_FAILURE) != 0) {
            notSimulated("ExAllocatePool2", "a failing allocation that must raise an exception", callSite);
        }
        return nullptr;
    }
    return kernel().pool.allocate(bytes, tag, paged, (flags & POOL_FLAG_UNINITIALIZED) == 0, false, callSite);
}

// learn.microsoft.com: ExFreePoolWithTag
extern "C" VOID ExFreePoolWithTag(PVOID address, ULONG tag) {
    kernel().pool.free(address, tag, SIM_CALL_SITE, "ExFreePoolWithTag");
}

// learn.microsoft.com: ExFreePool
extern "C" VOID ExFreePool(PVOID address) {
    kernel().pool.free(address, 0, SIM_CALL_SITE, "ExFreePool");
}
