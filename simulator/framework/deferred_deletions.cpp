#include "deferred_deletions.h"

#include "../kernel/kernel.h"
#include "object.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace sim::framework {

namespace {

struct Pending {
    std::mutex mutex;
    std::condition_variable idle;
    std::deque<std::function<void()>> waiting;
    unsigned running = 0;

    /// Takes one and runs it. False when none waits.
    bool runOne() {
        std::function<void()> finish;
        {
            std::lock_guard lock(mutex);
            if (waiting.empty()) {
                return false;
            }
            finish = std::move(waiting.front());
            waiting.pop_front();
            ++running;
        }
        finish();
        std::lock_guard lock(mutex);
        --running;
        idle.notify_all();
        return true;
    }
};

Pending &pending() {
    static Pending instance;
    return instance;
}

} // namespace

void deferDeletion(std::function<void()> finish) {
    {
        std::lock_guard lock(pending().mutex);
        pending().waiting.push_back(std::move(finish));
    }
    kernel().workers.queue([] { pending().runOne(); });
}

void drainDeferredDeletions() {
    while (pending().runOne()) {
    }
    std::unique_lock lock(pending().mutex);
    pending().idle.wait(lock, [] { return pending().running == 0; });
}

} // namespace sim::framework
