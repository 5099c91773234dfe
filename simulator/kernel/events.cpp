// Events and waits for them.

#include "events.h"

#include "dispatcher.h"
#include "internals.h"
#include "kernel.h"
#include "sanitizer.h"
#include "thread.h"
#include "violation.h"

#include <optional>
#include <pthread.h>
#if SIM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

using namespace sim;

namespace sim {

namespace {

constexpr UCHAR eventSize = sizeof(KEVENT) / sizeof(ULONG); ///< recalled: dispatcher headers count longs

/// Stops when the event can't be one: not initialised, or in pageable memory.
void checkEvent(PKEVENT event, const char *routine, const void *callSite) {
    kernel().pool.checkAccess(event, sizeof *event, routine, callSite);
    if (const auto block = kernel().pool.blockAt(event); block && block->paged) {
        bugCheck("event", routine, "the event lies in paged pool", callSite);
    }
    std::unique_lock lock(dispatcher().mutex);
    const DISPATCHER_HEADER &header = event->Header;
    if (header.Type > SynchronizationEvent || header.Size != eventSize) {
        const std::string message =
            "not an initialised event: type " + std::to_string(header.Type) + ", size " + std::to_string(header.Size);
        lock.unlock();
        bugCheck("event", routine, message, callSite);
    }
}

/// Takes the signal if there is one. The dispatcher lock is held.
bool takeSignal(PKEVENT event) {
    if (event->Header.SignalState == 0) {
        return false;
    }
    if (event->Header.Type == SynchronizationEvent) {
        event->Header.SignalState = 0;
    }
    return true;
}

bool onOwnStack(const void *address) {
#if SIM_ADDRESS_SANITIZER
    // The sanitizer keeps locals elsewhere, to notice their use after the return.
    if (__asan_addr_is_in_fake_stack(__asan_get_current_fake_stack(), const_cast<void *>(address), nullptr, nullptr) !=
        nullptr) {
        return true;
    }
#endif
    pthread_attr_t attributes;
    void *base = nullptr;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return false;
    }
    pthread_attr_getstack(&attributes, &base, &size);
    pthread_attr_destroy(&attributes);
    return address >= base && address < static_cast<char *>(base) + size;
}

LONG changeState(PKEVENT event, LONG state) {
    std::lock_guard lock(dispatcher().mutex);
    const LONG previous = event->Header.SignalState;
    event->Header.SignalState = state;
    return previous;
}

} // namespace

void signalEvent(PKEVENT event) {
    // Under the lock: as soon as the state shows, the waiter may give back the event's memory.
    std::lock_guard lock(dispatcher().mutex);
    event->Header.SignalState = 1;
    dispatcher().changed.notify_all();
}

void awaitEvent(PKEVENT event) {
    std::unique_lock lock(dispatcher().mutex);
    waitOrStop(dispatcher().changed, lock, [event] { return takeSignal(event); }, "wait", nullptr);
}

} // namespace sim

// learn.microsoft.com: KeInitializeEvent
extern "C" VOID KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN signalled) {
    kernel().pool.checkAccess(event, sizeof *event, "KeInitializeEvent", SIM_CALL_SITE);
    std::lock_guard lock(dispatcher().mutex);
    event->Header = {};
    event->Header.Type = static_cast<UCHAR>(type);
    event->Header.Size = eventSize;
    event->Header.SignalState = signalled ? 1 : 0;
    event->Header.WaitListHead = {&event->Header.WaitListHead, &event->Header.WaitListHead};
}

// learn.microsoft.com: KeSetEvent
extern "C" LONG KeSetEvent(PRKEVENT event, KPRIORITY, BOOLEAN wait) {
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(DISPATCH_LEVEL, "KeSetEvent", callSite);
    if (wait) {
        bugCheck("event", "KeSetEvent", "Wait is TRUE: the routine would return at raised IRQL", callSite);
    }
    checkEvent(event, "KeSetEvent", callSite);
    std::lock_guard lock(dispatcher().mutex);
    const LONG previous = event->Header.SignalState;
    event->Header.SignalState = 1;
    dispatcher().changed.notify_all();
    return previous;
}

// learn.microsoft.com: KeClearEvent
extern "C" VOID KeClearEvent(PRKEVENT event) {
    requireIrqlAtMost(DISPATCH_LEVEL, "KeClearEvent", SIM_CALL_SITE);
    checkEvent(event, "KeClearEvent", SIM_CALL_SITE);
    changeState(event, 0);
}

// learn.microsoft.com: KeResetEvent
extern "C" LONG KeResetEvent(PRKEVENT event) {
    requireIrqlAtMost(DISPATCH_LEVEL, "KeResetEvent", SIM_CALL_SITE);
    checkEvent(event, "KeResetEvent", SIM_CALL_SITE);
    return changeState(event, 0);
}

// learn.microsoft.com: KeWaitForSingleObject. Positive time-outs are absolute, negative ones relative (recalled).
extern "C" NTSTATUS KeWaitForSingleObject(PVOID object, KWAIT_REASON, KPROCESSOR_MODE mode, BOOLEAN,
                                          PLARGE_INTEGER timeout) {
    constexpr auto routine = "KeWaitForSingleObject";
    const void *callSite = SIM_CALL_SITE;
    const bool poll = timeout != nullptr && timeout->QuadPart == 0;
    requireIrqlAtMost(poll ? DISPATCH_LEVEL : APC_LEVEL, routine, callSite);
    const auto event = static_cast<PKEVENT>(object);
    checkEvent(event, routine, callSite);
    if (mode != KernelMode && onOwnStack(object)) {
        bugCheck("event", routine, "an event on the stack needs a KernelMode wait", callSite);
    }
    if (!poll) {
        requireCompletionApcPossible(event, routine, callSite);
    }
    std::optional<std::int64_t> due;
    if (timeout != nullptr) {
        due = timeout->QuadPart > 0 ? timeout->QuadPart : kernel().clock.now() - timeout->QuadPart;
    }
    bool signalled = false;
    std::unique_lock lock(dispatcher().mutex);
    waitOrStop(
        dispatcher().changed, lock,
        [&] {
            signalled = takeSignal(event);
            return signalled || (due && kernel().clock.now() >= *due);
        },
        routine, callSite);
    return signalled ? STATUS_SUCCESS : STATUS_TIMEOUT;
}
