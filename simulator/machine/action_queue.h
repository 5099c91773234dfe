#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace sim::machine {

/// What Plug and Play does later, after the call that asked for it has returned: device state questions, port cycles.
/// While the machine's workers run in order, actions wait for the thread that drives the machine, so that every run is
/// the same; while they run freely, a thread of the queue's own takes them at once. Thread-safe.
class ActionQueue {
  public:
    ActionQueue() = default;
    ~ActionQueue();
    ActionQueue(const ActionQueue &) = delete;
    ActionQueue &operator=(const ActionQueue &) = delete;

    void post(std::function<void()> action, bool atOnce);
    /// Runs or waits for everything posted so far and whatever that posts, but for actions in which a driver waits for
    /// a process of user mode: false when one of those still runs. Called by an action it does nothing.
    bool drain();

  private:
    bool runOne(std::unique_lock<std::mutex> &lock);
    void serve();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> waiting_;
    unsigned running_ = 0;
    bool ending_ = false;
    std::thread server_;
};

} // namespace sim::machine
