#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

namespace sim {

/// The lock under which events and fast mutexes change, and the condition that every waiting thread sleeps on.
struct Dispatcher {
    std::mutex mutex;
    std::condition_variable changed;
};

Dispatcher &dispatcher();

/// Wakes every waiting thread so that it looks again.
void dispatcherChanged();

/// Sleeps on `condition` until `ready` says true. A wait of more than two minutes of the host's time is a hang: the run
/// stops with the routine's name.
void waitOrStop(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                const std::function<bool()> &ready, const char *routine, const void *callSite);

} // namespace sim
