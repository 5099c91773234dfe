#pragma once

#include "../../simulator/kernel/faults.h"
#include "../scenario/scenario.h"

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

/// Makes platform calls fail as a scenario plans it: standing faults until they are replaced, those of a step in their
/// place while it lasts. Counts the fallible calls of each step. A run made for one failing call of its own leaves out
/// what the scenario plans.
class StepFaults {
  public:
    StepFaults(sim::FaultPlan &plan, bool planned) : plan_(plan), planned_(planned) {}

    /// From now on, beginning to count anew; none: calls succeed again.
    void setStanding(Faults faults);
    void beginStep(const Faults &ofStep);
    /// Returns how many calls of the step could have failed.
    std::uint64_t endStep();
    /// What the last step planned to fail and what was never called: a slip in a name or a number shows nothing else.
    const std::vector<std::string> &unmet() const { return unmet_; }

  private:
    void apply(const Faults &faults);

    sim::FaultPlan &plan_;
    bool planned_;
    Faults standing_;
    std::vector<std::string> unmet_;
    bool ofStep_ = false;
    std::uint64_t callsBefore_ = 0;
};

} // namespace cli
