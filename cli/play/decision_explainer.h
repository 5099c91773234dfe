#pragma once

#include "../facts/device_outcome.h"
#include "decision_trace.h"
#include "driver_contexts.h"

#include <optional>

namespace cli {

/// What was seen while a device was judged, beside what the outcome itself says.
struct Observations {
    bool policyWasRead = false;
    bool rulesWereAsked = false;
    std::optional<RuleHit> filterableBy;
    std::optional<RuleHit> decidedBy;
    std::optional<DriverState> driver; ///< at the end of the add
};

/// Fills decision, enforcement and why of an outcome whose other fields are known. Goes by what was observed and never
/// repeats the driver's reasoning.
void explain(DeviceOutcome &outcome, const Observations &observations);

} // namespace cli
