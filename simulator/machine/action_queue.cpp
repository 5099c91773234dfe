#include "action_queue.h"

#include "../framework/framework.h"

#include <chrono>

namespace sim::machine {

namespace {
thread_local bool insideAction = false;
}

ActionQueue::~ActionQueue() {
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    if (server_.joinable()) {
        server_.join();
    }
}

void ActionQueue::post(std::function<void()> action, bool atOnce) {
    const std::lock_guard guard(mutex_);
    waiting_.push_back(std::move(action));
    if (atOnce && !server_.joinable()) {
        server_ = std::thread([this] { serve(); });
    }
    changed_.notify_all();
}

bool ActionQueue::drain() {
    if (insideAction) {
        return false;
    }
    std::unique_lock lock(mutex_);
    while (true) {
        // One that waits for a process is not waited for: the process may be the caller's. Whoever runs it goes on with
        // those behind it, which may be about the same device.
        if (running_ != 0 && framework::parkedSends() != 0) {
            return false;
        }
        if (runOne(lock)) {
            continue;
        }
        if (running_ == 0) {
            return true;
        }
        changed_.wait_for(lock, std::chrono::milliseconds(1));
    }
}

bool ActionQueue::runOne(std::unique_lock<std::mutex> &lock) {
    if (waiting_.empty()) {
        return false;
    }
    const std::function<void()> action = std::move(waiting_.front());
    waiting_.pop_front();
    ++running_;
    lock.unlock();
    insideAction = true;
    action();
    insideAction = false;
    lock.lock();
    --running_;
    changed_.notify_all();
    return true;
}

void ActionQueue::serve() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        if (!runOne(lock)) {
            changed_.wait(lock);
        }
    }
}

} // namespace sim::machine
