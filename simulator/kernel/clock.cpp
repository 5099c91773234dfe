#include "clock.h"

#include "dispatcher.h"

#include <utility>

namespace sim {

std::int64_t Clock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void Clock::set(std::int64_t systemTime) {
    {
        std::lock_guard lock(mutex_);
        now_ = systemTime;
    }
    moved();
}

void Clock::advance(std::int64_t units) {
    {
        std::lock_guard lock(mutex_);
        now_ += units;
    }
    moved();
}

std::int64_t Clock::bias() const {
    std::lock_guard lock(mutex_);
    return bias_;
}

void Clock::setBias(std::int64_t units) {
    std::lock_guard lock(mutex_);
    bias_ = units;
}

std::uint64_t Clock::callAt(std::int64_t due, std::function<void()> routine) {
    {
        std::lock_guard lock(mutex_);
        if (due > now_) {
            calls_.emplace(due, Call{++lastId_, std::move(routine)});
            return lastId_;
        }
    }
    routine();
    return 0;
}

bool Clock::cancelCall(std::uint64_t id) {
    std::lock_guard lock(mutex_);
    return std::erase_if(calls_, [id](const auto &entry) { return entry.second.id == id; }) != 0;
}

Clock::TimedWait::TimedWait(Clock &clock, std::int64_t due) : clock_(clock), due_(due) {
    std::lock_guard lock(clock_.mutex_);
    clock_.timedWaits_.insert(due_);
}

Clock::TimedWait::~TimedWait() {
    std::lock_guard lock(clock_.mutex_);
    clock_.timedWaits_.erase(clock_.timedWaits_.find(due_));
}

std::size_t Clock::timedWaits() const {
    std::lock_guard lock(mutex_);
    return timedWaits_.size();
}

std::optional<std::int64_t> Clock::firstTimeOut() const {
    std::lock_guard lock(mutex_);
    return timedWaits_.empty() ? std::nullopt : std::optional(*timedWaits_.begin());
}

void Clock::moved() {
    dispatcherChanged();
    for (;;) {
        std::function<void()> routine;
        {
            std::lock_guard lock(mutex_);
            if (calls_.empty() || calls_.begin()->first > now_) {
                return;
            }
            routine = std::move(calls_.begin()->second.routine);
            calls_.erase(calls_.begin());
        }
        routine();
    }
}

} // namespace sim
