#include "faults.h"

#include "workers.h"

#include <utility>

namespace sim {

namespace {

std::size_t slot(FaultThread thread) {
    return static_cast<std::size_t>(thread);
}

} // namespace

bool FaultPlan::shouldFail(std::string_view routine) {
    if (!armed_) {
        return false;
    }
    std::lock_guard lock(mutex_);
    const FaultThread thread = WorkQueue::onWorkerThread() ? FaultThread::worker : FaultThread::driver;
    const std::uint64_t seen = ++seen_[slot(thread)];
    bool fail =
        point_.nth != 0 && point_.thread == thread && (seen == point_.nth || (point_.andAllAfter && seen > point_.nth));
    for (Named &named : named_) {
        if (named.routine == routine) {
            ++named.seen;
            fail = fail || named.seen == named.nth || (named.andAllAfter && named.seen > named.nth);
        }
    }
    if (fail && firstFailed_.empty()) {
        firstFailed_ = routine;
    }
    return fail;
}

void FaultPlan::arm(bool on) {
    armed_ = on;
}

void FaultPlan::failAt(const FaultPoint &point) {
    std::lock_guard lock(mutex_);
    point_ = point;
}

void FaultPlan::failNamed(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter) {
    std::lock_guard lock(mutex_);
    named_.push_back({std::move(routine), nth, 0, status, andAllAfter});
}

void FaultPlan::clear() {
    std::lock_guard lock(mutex_);
    seen_ = {};
    point_ = {};
    firstFailed_.clear();
    named_.clear();
}

std::uint64_t FaultPlan::callsSeen(FaultThread thread) const {
    std::lock_guard lock(mutex_);
    return seen_[slot(thread)];
}

std::string FaultPlan::firstFailed() const {
    std::lock_guard lock(mutex_);
    return firstFailed_;
}

std::vector<std::string> FaultPlan::unmet() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> list;
    const auto note = [&](std::uint64_t nth, const std::string &routine, std::uint64_t seen) {
        if (seen < nth) {
            list.push_back("call " + std::to_string(nth) + " of " + routine + " (" + std::to_string(seen) +
                           " were made)");
        }
    };
    note(point_.nth, "all routines", seen_[slot(point_.thread)]);
    for (const Named &named : named_) {
        note(named.nth, named.routine, named.seen);
    }
    return list;
}

NTSTATUS FaultPlan::statusFor(std::string_view routine, NTSTATUS otherwise) const {
    std::lock_guard lock(mutex_);
    for (const Named &named : named_) {
        const bool fired = named.seen == named.nth || (named.andAllAfter && named.seen > named.nth);
        if (named.routine == routine && named.status && fired) {
            return *named.status;
        }
    }
    return otherwise;
}

} // namespace sim
