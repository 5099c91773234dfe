#include "step_faults.h"

#include <utility>

namespace cli {

void StepFaults::apply(const Faults &faults) {
    plan_.clear();
    callsBefore_ = 0;
    for (const FaultPlanned &fault : faults) {
        if (fault.routine.empty()) {
            plan_.failNth(fault.nth, fault.allAfter);
        } else {
            plan_.failNamed(fault.routine, fault.nth, fault.status, fault.allAfter);
        }
    }
}

void StepFaults::setStanding(Faults faults) {
    if (planned_) {
        standing_ = std::move(faults);
        apply(standing_);
    }
}

void StepFaults::beginStep(const Faults &ofStep) {
    ofStep_ = planned_ && !ofStep.empty();
    if (ofStep_) {
        apply(ofStep);
    }
    callsBefore_ = plan_.callsSeen();
    plan_.arm(true);
}

std::uint64_t StepFaults::endStep() {
    plan_.arm(false);
    const std::uint64_t calls = plan_.callsSeen() - callsBefore_;
    unmet_ = ofStep_ ? plan_.unmet() : std::vector<std::string>();
    if (ofStep_) {
        apply(standing_);
    }
    return calls;
}

} // namespace cli
