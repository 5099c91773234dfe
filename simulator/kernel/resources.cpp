// Executive resources: shared and exclusive locks with recursion and an exclusive-first queue.

#include "dispatcher.h"
#include "internals.h"
#include "kernel.h"
#include "lock_accounting.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>

using namespace sim;

namespace sim {

unsigned ResourceState::holdsOf(KernelThread *thread) const {
    const auto found = holds.find(thread);
    return found == holds.end() ? 0 : found->second;
}

std::vector<std::string> ResourceTable::leaks() {
    std::lock_guard lock(mutex);
    std::vector<std::string> lines;
    for (const auto &[address, state] : resources) {
        lines.push_back("executive resource " + hex(address) + (state->held() ? " still held" : " not deleted") +
                        ", initialised by " + describeCodeAddress(state->initialisedAt));
    }
    return lines;
}

void requireNoLiveResource(const void *memory, std::size_t bytes, const char *routine, const void *callSite) {
    ResourceTable &table = kernel().internals->resources;
    const auto first = reinterpret_cast<std::uintptr_t>(memory);
    std::unique_lock lock(table.mutex);
    const auto found = table.resources.lower_bound(first);
    if (found != table.resources.end() && found->first - first < bytes) {
        const std::string message = "the memory holds the live executive resource " + hex(found->first) +
                                    ", initialised by " + describeCodeAddress(found->second->initialisedAt) +
                                    " (bug check 0xC4, 0xD2)";
        lock.unlock();
        bugCheck("executive resource", routine, message, callSite);
    }
}

namespace {

std::string describeResource(const void *resource) {
    return "executive resource " + hex(reinterpret_cast<std::uintptr_t>(resource));
}

ResourceTable &resourceTable() {
    return kernel().internals->resources;
}

/// The state of an initialised resource. The table's lock is held; it is let go before the run stops.
ResourceState &stateOf(PERESOURCE resource, std::unique_lock<std::mutex> &lock, const char *routine,
                       const void *callSite) {
    ResourceTable &table = resourceTable();
    const auto found = table.resources.find(reinterpret_cast<std::uintptr_t>(resource));
    if (found == table.resources.end()) {
        lock.unlock();
        bugCheck("executive resource", routine,
                 describeResource(resource) + " is not initialised (bug check 0xC4, 0xD1)", callSite);
    }
    return *found->second;
}

/// Keeps the fields of the structure that debuggers look at in step.
void publish(PERESOURCE resource, const ResourceState &state) {
    resource->ActiveEntries = static_cast<ULONG>(state.holds.size());
    resource->ActiveCount = static_cast<SHORT>(state.holds.size());
    const auto exclusive = std::count_if(state.waiters.begin(), state.waiters.end(),
                                         [](const ResourceState::Waiter *waiter) { return waiter->exclusive; });
    resource->NumberOfExclusiveWaiters = static_cast<ULONG>(exclusive);
    resource->NumberOfSharedWaiters = static_cast<ULONG>(state.waiters.size() - exclusive);
}

/// Hands a free resource on. After a shared hold the first exclusive waiter comes first; after an exclusive one all
/// shared waiters do (the second half recalled), so that neither kind starves.
void grantWaiters(ResourceState &state, bool wasExclusive) {
    const auto grant = [&state](ResourceState::Waiter *waiter) {
        waiter->granted = true;
        state.holds[waiter->thread] = 1;
        state.exclusiveOwner = waiter->exclusive ? waiter->thread : nullptr;
    };
    const auto isExclusive = [](const ResourceState::Waiter *waiter) { return waiter->exclusive; };
    const auto exclusive = std::find_if(state.waiters.begin(), state.waiters.end(), isExclusive);
    const bool anyShared = !std::all_of(state.waiters.begin(), state.waiters.end(), isExclusive);
    if (exclusive != state.waiters.end() && !(wasExclusive && anyShared)) {
        grant(*exclusive);
        state.waiters.erase(exclusive);
    } else {
        for (ResourceState::Waiter *waiter : state.waiters) {
            if (!waiter->exclusive) {
                grant(waiter);
            }
        }
        std::erase_if(state.waiters, [](const ResourceState::Waiter *waiter) { return waiter->granted; });
    }
    state.changed.notify_all();
}

bool anyExclusiveWaiter(const ResourceState &state) {
    return std::any_of(state.waiters.begin(), state.waiters.end(),
                       [](const ResourceState::Waiter *waiter) { return waiter->exclusive; });
}

/// Shared and exclusive acquisition. All acquires go through here.
BOOLEAN acquire(PERESOURCE resource, bool exclusive, bool wait, const char *routine, const void *callSite) {
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    KernelThread &thread = currentThread();
    if (thread.criticalRegionDepth == 0 && thread.irql < APC_LEVEL) {
        bugCheck("critical region", routine,
                 describeResource(resource) + " acquired with normal kernel APCs enabled: no critical region entered",
                 callSite);
    }
    std::unique_lock lock(resourceTable().mutex);
    ResourceState &state = stateOf(resource, lock, routine, callSite);
    const bool holds = state.holdsOf(&thread) != 0;
    // The owner gets any further hold at once, and an exclusive one stays exclusive; a shared holder may share again
    // even past a waiting exclusive request.
    const bool grantedAtOnce =
        state.exclusiveOwner == &thread ||
        (exclusive ? !state.held() : state.exclusiveOwner == nullptr && (holds || !anyExclusiveWaiter(state)));
    if (grantedAtOnce) {
        ++state.holds[&thread];
        if (exclusive) {
            state.exclusiveOwner = &thread;
        }
    } else if (!wait) {
        return FALSE;
    } else if (holds) {
        lock.unlock();
        bugCheck("deadlock", routine,
                 describeResource(resource) + " is held shared by this thread, which would wait for itself", callSite);
    } else {
        ResourceState::Waiter waiter{&thread, exclusive};
        state.waiters.push_back(&waiter);
        ++resource->ContentionCount;
        publish(resource, state);
        waitOrStop(state.changed, lock, [&waiter] { return waiter.granted; }, routine, callSite);
    }
    publish(resource, state);
    lock.unlock();
    lockAcquired(LockKind::executiveResource, resource, exclusive, callSite);
    return TRUE;
}

} // namespace

} // namespace sim

// learn.microsoft.com: ExInitializeResourceLite
extern "C" NTSTATUS ExInitializeResourceLite(PERESOURCE resource) {
    const void *callSite = SIM_CALL_SITE;
    constexpr auto routine = "ExInitializeResourceLite";
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    const auto address = reinterpret_cast<std::uintptr_t>(resource);
    if (address == 0 || address % 8 != 0) {
        bugCheck("executive resource", routine, describeResource(resource) + " is not 8-byte aligned", callSite);
    }
    kernel().pool.checkAccess(resource, sizeof *resource, routine, callSite);
    if (const auto block = kernel().pool.blockAt(resource); block && block->paged) {
        bugCheck("executive resource", routine, describeResource(resource) + " lies in paged pool", callSite);
    }
    std::unique_lock lock(resourceTable().mutex);
    auto &state = resourceTable().resources[address];
    if (state) {
        lock.unlock();
        bugCheck("executive resource", routine,
                 describeResource(resource) + " is initialised twice (bug check 0xC4, 0xD0)", callSite);
    }
    state = std::make_unique<ResourceState>();
    state->initialisedAt = callSite;
    *resource = {};
    return STATUS_SUCCESS;
}

// learn.microsoft.com: ExDeleteResourceLite
extern "C" NTSTATUS ExDeleteResourceLite(PERESOURCE resource) {
    const void *callSite = SIM_CALL_SITE;
    constexpr auto routine = "ExDeleteResourceLite";
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    std::unique_lock lock(resourceTable().mutex);
    const ResourceState &state = stateOf(resource, lock, routine, callSite);
    if (state.held() || !state.waiters.empty()) {
        lock.unlock();
        bugCheck("executive resource", routine, describeResource(resource) + " is deleted while held", callSite);
    }
    resourceTable().resources.erase(reinterpret_cast<std::uintptr_t>(resource));
    kernel().internals->lockOrder.forget(resource, sizeof *resource);
    return STATUS_SUCCESS;
}

// learn.microsoft.com: ExAcquireResourceExclusiveLite
extern "C" BOOLEAN ExAcquireResourceExclusiveLite(PERESOURCE resource, BOOLEAN wait) {
    return acquire(resource, true, wait != FALSE, "ExAcquireResourceExclusiveLite", SIM_CALL_SITE);
}

// learn.microsoft.com: ExAcquireResourceSharedLite
extern "C" BOOLEAN ExAcquireResourceSharedLite(PERESOURCE resource, BOOLEAN wait) {
    return acquire(resource, false, wait != FALSE, "ExAcquireResourceSharedLite", SIM_CALL_SITE);
}

// learn.microsoft.com: ExReleaseResourceLite
extern "C" VOID ExReleaseResourceLite(PERESOURCE resource) {
    const void *callSite = SIM_CALL_SITE;
    constexpr auto routine = "ExReleaseResourceLite";
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    KernelThread &thread = currentThread();
    std::unique_lock lock(resourceTable().mutex);
    ResourceState &state = stateOf(resource, lock, routine, callSite);
    const auto held = state.holds.find(&thread);
    if (held == state.holds.end()) {
        lock.unlock();
        bugCheck("executive resource", routine,
                 describeResource(resource) + " is released by a thread that does not own it (bug check 0xE3)",
                 callSite);
    }
    if (--held->second == 0) {
        const bool wasExclusive = state.exclusiveOwner == &thread;
        state.holds.erase(held);
        state.exclusiveOwner = nullptr;
        if (!state.held()) {
            grantWaiters(state, wasExclusive);
        }
    }
    publish(resource, state);
    lock.unlock();
    lockReleased(LockKind::executiveResource, resource, callSite);
}
