#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace sim::process {

/// Rings whenever a request of a process comes back, so that one thread can wait for any of them.
class Bell {
  public:
    void ring();
    std::uint64_t rings() const;
    /// Waits until it has rung more often than `seen` times; stops the run after two minutes of the host's time.
    void awaitMoreThan(std::uint64_t seen);

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t rings_ = 0;
};

} // namespace sim::process
