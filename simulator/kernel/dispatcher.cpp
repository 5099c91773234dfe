#include "dispatcher.h"

#include "violation.h"

#include <chrono>

namespace sim {

Dispatcher &dispatcher() {
    static Dispatcher instance;
    return instance;
}

void dispatcherChanged() {
    // Taking the lock orders the change before the next look of a thread that is about to sleep.
    {
        std::lock_guard lock(dispatcher().mutex);
    }
    dispatcher().changed.notify_all();
}

void waitOrStop(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                const std::function<bool()> &ready, const char *routine, const void *callSite) {
    constexpr auto limit = std::chrono::minutes(2);
    // The system clock, since the steady one's wait is not understood by every thread sanitizer runtime.
    if (!condition.wait_until(lock, std::chrono::system_clock::now() + limit, ready)) {
        lock.unlock();
        bugCheck("hang", routine, "waited for two minutes without end; nothing will wake this thread", callSite);
    }
}

} // namespace sim
