#include "fault_check.h"

#include "../facts/message_fields.h"
#include "../text/status_names.h"

#include <fmt/format.h>

#include <algorithm>

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

template<typename Visit>
void forEachPair(const PlayResult &sound, const PlayResult &faulty, Visit visit) {
    for (const DeviceOutcome &outcome : sound.outcomes) {
        const DeviceOutcome *other = counterpart(outcome, faulty);
        if (other != nullptr && counterpart(outcome, sound) == &outcome) {
            visit(outcome, *other);
        }
    }
}

bool isMoreOpen(const DeviceOutcome &was, const DeviceOutcome &is) {
    return openness(is) > openness(was);
}

bool failedToAdd(const DeviceOutcome &outcome) {
    return outcome.callbackStatus && !NT_SUCCESS(*outcome.callbackStatus);
}

/// The framework hides a failed add of a filter from Plug and Play; the driver lets that be for an NVMe disk of which
/// it does not know yet that it is external, for the boot disk's sake.
bool worksWithoutItsFilter(const DeviceOutcome &outcome) {
    return failedToAdd(outcome) && outcome.returned == STATUS_SUCCESS;
}

bool isDiskFilter(const std::string &attached) {
    return attached == "disk-filter" || attached == "sd-card-filter" || attached == "thunderbolt-filter";
}

/// A disk that is as open as the USB device that it follows, which is judged for itself.
bool followsItsDevice(const DeviceOutcome &disk, const PlayResult &result) {
    const std::string device = disk.device.substr(0, disk.device.rfind('/'));
    return disk.why.reason == Reason::usbDevice &&
           std::any_of(result.outcomes.begin(), result.outcomes.end(), [&](const DeviceOutcome &other) {
               return other.device == device && other.present && (!other.values || other.decision == "allowed");
           });
}

/// What the service says of a device, or that it says nothing, depends on what became of its own requests.
bool dependsOnService(const DeviceOutcome &outcome) {
    return outcome.why.reason == Reason::service || outcome.why.reason == Reason::callbackFallback;
}

/// A question that meets another kind of request than it needs comes back without an answer, and the device runs.
bool isLeftUndecided(const DeviceOutcome &outcome) {
    return outcome.why.reason == Reason::service && outcome.values && outcome.values->mode == 0;
}

std::string serialNumber(const DeviceOutcome &outcome) {
    const auto &fields = messageFields();
    const auto field =
        std::find_if(fields.begin(), fields.end(), [](const auto &each) { return each.name == "serial"; });
    const Fact fact = messageFact(outcome.values ? outcome.values->message : std::vector<std::uint8_t>{}, *field);
    const auto *text = std::get_if<std::string>(&fact);
    return text == nullptr ? std::string() : *text;
}

/// A rule that accepts any serial number also accepts a device whose number can't be read; when nothing fails the
/// number of such a device can be too long to be matched behind its id.
bool acceptedWithoutSerialNumber(const DeviceOutcome &was, const DeviceOutcome &is) {
    return is.why.decidedBy && is.why.decidedBy->rule.ends_with("\\*") && !serialNumber(was).empty() &&
           serialNumber(is).empty();
}

std::ptrdiff_t timesAdded(const DeviceOutcome &outcome, const PlayResult &result) {
    return std::count_if(result.outcomes.begin(), result.outcomes.end(), [&](const DeviceOutcome &other) {
        return other.device == outcome.device && other.instance == outcome.instance;
    });
}

bool isMeantToBeOpen(const DeviceOutcome &was, const DeviceOutcome &is, const PlayResult &sound,
                     const PlayResult &faulty) {
    const bool wasNotDecidedAgain = timesAdded(is, faulty) < timesAdded(is, sound); // its rescan failed
    const bool policyWasNotRead = is.values && is.values->filterable == 0;
    const bool enumeratorWasNotRead = is.asked && is.attached == "nothing" && is.returned == STATUS_SUCCESS;
    const bool settingsWereNotRead =
        was.why.reason == Reason::callbackFallback && is.why.reason != Reason::callbackFallback;
    const bool cardModeWasNotRead = is.why.reason == Reason::sdCardMode && is.decision == "allowed";
    const bool notKnownAsExternal = was.attached == "thunderbolt-filter" && worksWithoutItsFilter(is);
    return policyWasNotRead || enumeratorWasNotRead || settingsWereNotRead || cardModeWasNotRead ||
           notKnownAsExternal || acceptedWithoutSerialNumber(was, is) || isLeftUndecided(is) || wasNotDecidedAgain ||
           followsItsDevice(is, faulty) || !is.asked;
}

/// Nobody can tell yet whose disk it is while its class or its descriptor can't be read; then no line is written.
bool failedBeforeItsDiskWasKnown(const DeviceOutcome &sound, const DeviceOutcome &outcome) {
    return isDiskFilter(sound.attached) &&
           std::none_of(outcome.log.begin(), outcome.log.end(),
                        [](const LogLine &line) { return line.text.starts_with("Disk information"); });
}

/// Whether the log of the add names its status in an error line; of a disk that works without its filter the reason is
/// enough. A log that is off names nothing, and nothing is said of devices that the driver would not filter.
bool failureIsLogged(const DeviceOutcome &sound, const DeviceOutcome &outcome) {
    const std::string status = fmt::format("{:x}", static_cast<std::uint32_t>(*outcome.callbackStatus));
    return sound.log.empty() || sound.attached == "nothing" || failedBeforeItsDiskWasKnown(sound, outcome) ||
           std::any_of(outcome.log.begin(), outcome.log.end(), [&](const LogLine &line) {
               return line.level == "ERROR" &&
                      (line.text.find(status) != std::string::npos || worksWithoutItsFilter(outcome));
           });
}

bool isSame(const DeviceOutcome &was, const DeviceOutcome &is) {
    return was.decision == is.decision && was.enforcement == is.enforcement && was.problem == is.problem &&
           was.started == is.started;
}

/// Whether the failure hit one device only: not the driver itself with its settings, its registration or its control
/// device, and not the service.
bool hitOneDevice(const PlayResult &sound, const PlayResult &faulty) {
    bool onlyOne = std::none_of(faulty.steps.begin(), faulty.steps.end(), [&](const StepResult &step) {
        return step.number == faulty.failedStep && (step.title == "load" || step.byService);
    });
    forEachPair(sound, faulty, [&](const DeviceOutcome &was, const DeviceOutcome &is) {
        onlyOne = onlyOne && was.asked == is.asked && (was.device != "control-node" || isSame(was, is));
    });
    return onlyOne;
}

std::string describeOutcome(const DeviceOutcome &outcome) {
    return fmt::format("{}, {}", outcome.decision, outcome.enforcement);
}

} // namespace

std::vector<std::string> faultProblems(const PlayResult &sound, const PlayResult &faulty, bool single) {
    std::vector<std::string> problems;
    for (const StepResult &step : faulty.steps) {
        for (const Failure &failure : step.failures) {
            if (failure.what == "leaks") {
                problems.push_back("left behind: " + failure.found);
            }
        }
    }
    const bool othersUntouched = single && hitOneDevice(sound, faulty);
    forEachPair(sound, faulty, [&](const DeviceOutcome &was, const DeviceOutcome &is) {
        if (isMoreOpen(was, is) && !isMeantToBeOpen(was, is, sound, faulty)) {
            problems.push_back(fmt::format("{}: {} although {} when nothing fails", is.device, describeOutcome(is),
                                           describeOutcome(was)));
        }
        const bool hiddenAsMeant =
            worksWithoutItsFilter(is) && (was.attached == "thunderbolt-filter" || failedToAdd(was));
        if (failedToAdd(is) && openness(is) > 0 && !hiddenAsMeant) {
            problems.push_back(
                fmt::format("{}: runs although its add failed with {}", is.device, describeStatus(*is.callbackStatus)));
        }
        if (single && failedToAdd(is) && !failedToAdd(was) && !failureIsLogged(was, is)) {
            problems.push_back(fmt::format("{}: its add failed with {}, which no error line says", is.device,
                                           describeStatus(*is.callbackStatus)));
        }
        const bool isComparable = !dependsOnService(was) && !dependsOnService(is);
        if (othersUntouched && isComparable && is.step > faulty.failedStep && faulty.failedStep != 0 &&
            !isSame(was, is)) {
            problems.push_back(fmt::format("{}: {} after a failure of a step before, {} when nothing fails", is.device,
                                           describeOutcome(is), describeOutcome(was)));
        }
    });
    return problems;
}

std::size_t openedAsMeant(const PlayResult &sound, const PlayResult &faulty) {
    std::size_t count = 0;
    forEachPair(sound, faulty, [&](const DeviceOutcome &was, const DeviceOutcome &is) {
        count += isMoreOpen(was, is) && isMeantToBeOpen(was, is, sound, faulty) ? 1 : 0;
    });
    return count;
}

} // namespace cli
