#pragma once

#include <condition_variable>
#include <mutex>

namespace sim::machine {

/// Lets a device object finish the requests it is working on before it goes: requests enter and leave, the removal
/// closes and waits. Thread-safe.
class RemoveLock {
  public:
    /// False once closed.
    bool enter() {
        const std::lock_guard guard(mutex_);
        if (closed_) {
            return false;
        }
        ++inside_;
        return true;
    }

    void leave() {
        const std::lock_guard guard(mutex_);
        --inside_;
        left_.notify_all();
    }

    /// Called by the removal, which is itself inside: waits until it is the only one.
    void closeAndWait() {
        std::unique_lock lock(mutex_);
        closed_ = true;
        left_.wait(lock, [this] { return inside_ == 1; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable left_;
    unsigned inside_ = 0;
    bool closed_ = false;
};

} // namespace sim::machine
