// Fast mutexes. learn.microsoft.com: "Fast Mutexes and Guarded Mutexes".

#include "dispatcher.h"
#include "kernel.h"
#include "lock_accounting.h"
#include "thread.h"
#include "violation.h"

using namespace sim;

namespace {

constexpr LONG freeCount = FM_LOCK_BIT;

std::string describeMutex(const void *mutex) {
    return "fast mutex " + hex(reinterpret_cast<std::uintptr_t>(mutex));
}

} // namespace

// learn.microsoft.com: ExAcquireFastMutex
extern "C" VOID ExAcquireFastMutex(PFAST_MUTEX mutex) {
    constexpr auto routine = "ExAcquireFastMutex";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    kernel().pool.checkAccess(mutex, sizeof *mutex, routine, callSite);
    if (const auto block = kernel().pool.blockAt(mutex); block && block->paged) {
        bugCheck("fast mutex", routine, describeMutex(mutex) + " lies in paged pool", callSite);
    }
    KernelThread &thread = currentThread();
    std::unique_lock lock(dispatcher().mutex);
    if (mutex->Owner == &thread) {
        lock.unlock();
        bugCheck("deadlock", routine, describeMutex(mutex) + " is already owned by this thread", callSite);
    }
    if (mutex->Count != freeCount && mutex->Owner == nullptr) {
        lock.unlock();
        bugCheck("fast mutex", routine, describeMutex(mutex) + " is not initialised", callSite);
    }
    if (mutex->Count != freeCount) {
        ++mutex->Contention;
        waitOrStop(dispatcher().changed, lock, [mutex] { return mutex->Count == freeCount; }, routine, callSite);
    }
    mutex->Count = 0;
    mutex->Owner = &thread;
    mutex->OldIrql = thread.irql;
    lock.unlock();
    thread.irql = APC_LEVEL;
    lockAcquired(LockKind::fastMutex, mutex, true, callSite);
}

// learn.microsoft.com: ExReleaseFastMutex
extern "C" VOID ExReleaseFastMutex(PFAST_MUTEX mutex) {
    constexpr auto routine = "ExReleaseFastMutex";
    const void *callSite = SIM_CALL_SITE;
    KernelThread &thread = currentThread();
    if (thread.irql != APC_LEVEL) {
        bugCheck("irql", routine, "called at IRQL " + std::to_string(thread.irql) + ", must be APC_LEVEL", callSite);
    }
    KIRQL oldIrql = PASSIVE_LEVEL;
    {
        std::unique_lock lock(dispatcher().mutex);
        if (mutex->Owner != &thread) {
            lock.unlock();
            bugCheck("fast mutex", routine, describeMutex(mutex) + " is not owned by this thread", callSite);
        }
        oldIrql = static_cast<KIRQL>(mutex->OldIrql);
        mutex->Owner = nullptr;
        mutex->Count = freeCount;
        dispatcher().changed.notify_all();
    }
    thread.irql = oldIrql;
    lockReleased(LockKind::fastMutex, mutex, callSite);
    requireResourcesProtected(routine, callSite);
}
