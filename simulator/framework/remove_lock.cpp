#include "remove_lock.h"

#include "../kernel/dispatcher.h"

namespace sim::framework {

bool RemoveLock::acquire() {
    std::lock_guard lock(mutex_);
    if (closed_) {
        return false;
    }
    ++holders_;
    return true;
}

void RemoveLock::release() {
    std::lock_guard lock(mutex_);
    --holders_;
    idle_.notify_all();
}

void RemoveLock::waitAndClose() {
    std::unique_lock lock(mutex_);
    closed_ = true;
    waitOrStop(idle_, lock, [this] { return holders_ == 0; }, "IRP_MN_REMOVE_DEVICE", nullptr);
}

} // namespace sim::framework
