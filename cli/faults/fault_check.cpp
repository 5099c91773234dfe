#include "fault_check.h"

#include "../text/status_names.h"

#include <fmt/format.h>

namespace cli {
namespace {

/// 0 can't be used, 1 can be read, 2 can be written.
int openness(const DeviceOutcome &outcome) {
    if (!outcome.everStarted || outcome.problem != 0) {
        return 0;
    }
    return outcome.decision == "read-only" ? 1 : 2;
}

/// The last outcome of the same device; null when the run never got that far.
const DeviceOutcome *counterpart(const DeviceOutcome &outcome, const PlayResult &result) {
    const DeviceOutcome *found = nullptr;
    for (const DeviceOutcome &other : result.outcomes) {
        if (other.device == outcome.device && other.instance == outcome.instance) {
            found = &other;
        }
    }
    return found;
}

bool policyWasNotRead(const DeviceOutcome &faulty) {
    return faulty.values && faulty.values->filterable == 0;
}

enum class Comparison { noMoreOpen, openedAsMeant, opened };

Comparison compare(const DeviceOutcome &sound, const DeviceOutcome &faulty) {
    if (openness(faulty) <= openness(sound)) {
        return Comparison::noMoreOpen;
    }
    return policyWasNotRead(faulty) || !faulty.asked ? Comparison::openedAsMeant : Comparison::opened;
}

template<typename Visit>
void forEachPair(const PlayResult &sound, const PlayResult &faulty, Visit visit) {
    for (const DeviceOutcome &outcome : sound.outcomes) {
        const DeviceOutcome *other = counterpart(outcome, faulty);
        if (other != nullptr && counterpart(outcome, sound) == &outcome) {
            visit(outcome, *other);
        }
    }
}

} // namespace

std::vector<std::string> faultProblems(const PlayResult &sound, const PlayResult &faulty) {
    std::vector<std::string> problems;
    for (const StepResult &step : faulty.steps) {
        for (const Failure &failure : step.failures) {
            if (failure.what == "leaks") {
                problems.push_back("left behind: " + failure.found);
            }
        }
    }
    forEachPair(sound, faulty, [&](const DeviceOutcome &was, const DeviceOutcome &is) {
        if (compare(was, is) == Comparison::opened) {
            problems.push_back(
                fmt::format("{}: {} although it is {} when nothing fails", is.device, is.decision, was.decision));
        }
        if (was.values && is.callbackStatus && !NT_SUCCESS(*is.callbackStatus) && openness(is) > 0) {
            problems.push_back(
                fmt::format("{}: runs although its add failed with {}", is.device, describeStatus(*is.callbackStatus)));
        }
    });
    return problems;
}

std::size_t openedAsMeant(const PlayResult &sound, const PlayResult &faulty) {
    std::size_t count = 0;
    forEachPair(sound, faulty, [&](const DeviceOutcome &was, const DeviceOutcome &is) {
        count += compare(was, is) == Comparison::openedAsMeant ? 1 : 0;
    });
    return count;
}

} // namespace cli
