#include "bell.h"

#include "../kernel/dispatcher.h"

namespace sim::process {

void Bell::ring() {
    const std::lock_guard lock(mutex_);
    ++rings_;
    changed_.notify_all();
}

std::uint64_t Bell::rings() const {
    const std::lock_guard lock(mutex_);
    return rings_;
}

void Bell::awaitMoreThan(std::uint64_t seen) {
    std::unique_lock lock(mutex_);
    waitOrStop(changed_, lock, [&] { return rings_ > seen; }, "wait for any request of a process", nullptr);
}

} // namespace sim::process
