#include "decision_explainer.h"

#include "../facts/device_facts.h"
#include "../text/status_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace cli {
namespace {

constexpr std::uint32_t problemFilterList = 19;
constexpr std::uint32_t problemDisabled = 29;
constexpr std::uint32_t problemFailedAdd = 31;
constexpr std::uint32_t modeBlocked = 1;
constexpr std::uint32_t modeReadOnly = 3;
constexpr std::uint32_t ruleTypeReadOnly = 4;
constexpr std::uint32_t ruleTypeReadOnlyUnlisted = 5;

std::string enforcementOf(const DeviceOutcome &outcome) {
    if (outcome.problem == problemFailedAdd) {
        return "add-failed";
    }
    if (!outcome.asked) {
        return "no-filter";
    }
    if (outcome.problem == problemDisabled && outcome.hidden) {
        return "disabled-and-hidden";
    }
    constexpr std::string_view denyWrite = "D;;0x2;;;WD";
    if (outcome.security != outcome.securityBefore && outcome.security.find(denyWrite) != std::string::npos) {
        return "deny-write-entry";
    }
    if (outcome.refusesWrites) {
        return "writes-refused";
    }
    if (outcome.values && outcome.values->mode == modeReadOnly && outcome.massStorage) {
        return "left-to-disk-filter";
    }
    return "nothing";
}

bool addFailed(const DeviceOutcome &outcome) {
    return (outcome.returned && *outcome.returned < 0) || (outcome.callbackStatus && *outcome.callbackStatus < 0);
}

Reason reasonOf(const DeviceOutcome &outcome, const Observations &seen) {
    if (outcome.problem == problemFilterList) {
        return Reason::badFilterList;
    }
    if (!outcome.asked) {
        return Reason::notAsked;
    }
    if (addFailed(outcome)) {
        return Reason::addFailed;
    }
    if (outcome.attached == "control-device") {
        return Reason::controlNode;
    }
    if (outcome.attached == "disk-filter") {
        return Reason::usbDevice;
    }
    if (outcome.attached == "sd-card-filter") {
        return Reason::sdCardMode;
    }
    if (outcome.attached == "thunderbolt-filter") {
        return seen.decidedBy ? Reason::rule : Reason::noRule;
    }
    if (!outcome.values) {
        return Reason::notConcerned;
    }
    // A root hub and a device that failed its reset are let in before the policy is looked at.
    if (!seen.policyWasRead && outcome.values->mode == 0 && outcome.values->ruleType == 0) {
        return Reason::notJudged;
    }
    if (outcome.values->filterable == 0) {
        return seen.rulesWereAsked ? Reason::notFilterable : Reason::composite;
    }
    if (seen.decidedBy) {
        return Reason::rule;
    }
    if (seen.driver && !seen.driver->controlDevice) {
        return Reason::noControlDevice;
    }
    if (seen.driver && seen.driver->callbackMode != 0 && seen.driver->serviceRegistered) {
        return Reason::service;
    }
    if (seen.driver && seen.driver->callbackMode == 2) {
        return Reason::callbackFallback;
    }
    return Reason::noRule;
}

bool sameText(const std::string &a, const std::string &b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// "AllowedHardwareIds: RULE matches ID", once when both are the same.
std::string describeHit(const RuleHit &hit) {
    std::string text = fmt::format("{}{}: {}", hit.value, hit.builtInList ? " (built-in list)" : "", hit.rule);
    if (!sameText(hit.rule, hit.id)) {
        text += " matches " + hit.id;
    }
    return text;
}

bool readOnlyBecameBlocked(const DeviceOutcome &outcome) {
    return outcome.values && outcome.values->mode == modeBlocked &&
           (outcome.values->ruleType == ruleTypeReadOnly || outcome.values->ruleType == ruleTypeReadOnlyUnlisted);
}

std::string describeFailure(const DeviceOutcome &outcome) {
    const NTSTATUS status = outcome.callbackStatus.value_or(outcome.returned.value_or(0));
    std::string text = "the driver failed the device: " + describeStatus(status);
    if (outcome.returned && *outcome.returned >= 0) {
        text += ", hidden from Plug and Play, so it works without the filter";
    }
    return text;
}

std::string describe(const DeviceOutcome &outcome, const Explanation &why) {
    const std::string filterable = why.filterableBy ? "; filtered by " + describeHit(*why.filterableBy) : std::string();
    const std::string enforced =
        readOnlyBecameBlocked(outcome) ? "; read-only can't be enforced on it, so it is blocked" : std::string();
    switch (why.reason) {
    case Reason::rule:
        return describeHit(*why.decidedBy) + enforced;
    case Reason::noRule:
        return "default: no rule matches" + filterable;
    case Reason::notFilterable:
        return "not filterable: no compatible id in BlockedCompatibleIds";
    case Reason::composite:
        return "composite parent: its functions are judged one by one";
    case Reason::notJudged:
        return "root hub or failed reset: gets the filter and no decision";
    case Reason::noControlDevice:
        return "no control device: fail closed" + filterable;
    case Reason::callbackFallback:
        return "callback fallback: the service is not there" + enforced + filterable;
    case Reason::service:
        return "the service answered" + enforced + filterable;
    case Reason::controlNode:
        return "the driver's own node: became the control device";
    case Reason::usbDevice:
        return "as was decided for its USB device";
    case Reason::sdCardMode:
        return "SdCardMode decides for every card";
    case Reason::notConcerned:
        return "asked, and declined: neither enumerated by USB nor a disk that it filters";
    case Reason::addFailed:
        return describeFailure(outcome);
    case Reason::notAsked:
        return fmt::format("no filter: class {} {}", outcome.setupClass,
                           outcome.coveredClass ? "did not name the driver when the device came" : "is not covered");
    case Reason::badFilterList:
        return fmt::format("a filter list of class {} names a service that is not there: {}", outcome.setupClass,
                           describeStatus(outcome.problemStatus));
    }
    return {};
}

/// A disk's filter keeps no record of its decision; what became of the disk tells it.
std::string decisionOnDisk(const DeviceOutcome &outcome) {
    if (outcome.enforcement == "disabled-and-hidden") {
        return "blocked";
    }
    return outcome.refusesWrites ? "read-only" : "allowed";
}

std::string decisionOf(const DeviceOutcome &outcome, Reason reason) {
    switch (reason) {
    case Reason::addFailed:
        return "failed";
    case Reason::controlNode:
    case Reason::notConcerned:
    case Reason::notAsked:
    case Reason::notJudged:
    case Reason::badFilterList:
        return "none";
    default:
        if (!outcome.values) {
            return decisionOnDisk(outcome);
        }
        return outcome.values->mode <= modeReadOnly ? modeName(outcome.values->mode) : "unknown";
    }
}

} // namespace

void explain(DeviceOutcome &outcome, const Observations &seen) {
    outcome.enforcement = enforcementOf(outcome);
    outcome.why.reason = reasonOf(outcome, seen);
    outcome.why.decidedBy = seen.decidedBy;
    outcome.why.filterableBy = seen.filterableBy;
    outcome.why.text = describe(outcome, outcome.why);
    outcome.decision = decisionOf(outcome, outcome.why.reason);
}

} // namespace cli
