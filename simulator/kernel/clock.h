#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>

namespace sim {

/// The machine's clock, in 100-nanosecond units since 1601-01-01 UTC. It stands still until a test moves it.
class Clock {
  public:
    std::int64_t now() const;
    void set(std::int64_t systemTime);
    void advance(std::int64_t units); ///< wakes waits and time-outs that have come due
    std::int64_t bias() const;        ///< UTC minus local time
    void setBias(std::int64_t units);

    /// Calls `routine` once, without any lock held, in the thread that moves the clock to `due` or beyond; at once, in
    /// the calling thread, when that time has come already. Returns a number for cancelCall (0 when it ran at once).
    std::uint64_t callAt(std::int64_t due, std::function<void()> routine);
    /// False when the call has been made or is being made.
    bool cancelCall(std::uint64_t id);

    /// A thread that waits for an answer until `due` at the latest is one of these until it has it or has given up.
    class TimedWait {
      public:
        TimedWait(Clock &clock, std::int64_t due);
        ~TimedWait();
        TimedWait(const TimedWait &) = delete;
        TimedWait &operator=(const TimedWait &) = delete;

      private:
        Clock &clock_;
        const std::int64_t due_;
    };
    std::size_t timedWaits() const;
    /// When the first of the threads that wait with a time-out gives up.
    std::optional<std::int64_t> firstTimeOut() const;

  private:
    struct Call {
        std::uint64_t id;
        std::function<void()> routine;
    };
    void moved();

    mutable std::mutex mutex_;
    std::int64_t now_ = 133'542'000'000'000'000; ///< 2024-03-07 00:00:00 UTC
    std::int64_t bias_ = 0;
    std::uint64_t lastId_ = 0;
    std::multimap<std::int64_t, Call> calls_;
    std::multiset<std::int64_t> timedWaits_;
};

} // namespace sim
