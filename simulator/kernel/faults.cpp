#include "faults.h"

#include <utility>

namespace sim {

bool FaultPlan::shouldFail(std::string_view routine) {
    if (!armed_) {
        return false;
    }
    std::lock_guard lock(mutex_);
    ++seen_;
    bool fail = nth_ != 0 && (seen_ == nth_ || (andAllAfter_ && seen_ > nth_));
    for (Named &named : named_) {
        if (named.routine == routine) {
            ++named.seen;
            fail = fail || named.seen == named.nth || (named.andAllAfter && named.seen > named.nth);
        }
    }
    return fail;
}

void FaultPlan::arm(bool on) {
    armed_ = on;
}

void FaultPlan::failNth(std::uint64_t n, bool andAllAfter) {
    std::lock_guard lock(mutex_);
    nth_ = n;
    andAllAfter_ = andAllAfter;
}

void FaultPlan::failNamed(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter) {
    std::lock_guard lock(mutex_);
    named_.push_back({std::move(routine), nth, 0, status, andAllAfter});
}

void FaultPlan::clear() {
    std::lock_guard lock(mutex_);
    seen_ = 0;
    nth_ = 0;
    andAllAfter_ = false;
    named_.clear();
}

std::uint64_t FaultPlan::callsSeen() const {
    std::lock_guard lock(mutex_);
    return seen_;
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
