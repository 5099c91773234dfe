#pragma once

#include "fact.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// One line of the driver's log. Text is in visible form; a line without a readable header has only text.
struct LogLine {
    std::string time; ///< "2024-03-07 9:05:01.042"
    std::string level;
    std::string text;

    /// "INFO Driver start": the line apart from its time.
    std::string withoutTime() const { return level.empty() ? text : level + " " + text; }
    bool operator==(const LogLine &) const = default;
};

/// A rule of a policy value that answered yes to one of a device's ids.
struct RuleHit {
    std::string value;        ///< name of the registry value that the rule came from
    bool builtInList = false; ///< the value was empty and the driver used its built-in list
    std::string rule;         ///< as the driver keeps it
    std::string id;           ///< the id that matched
};

/// Why the outcome is what it is.
enum class Reason {
    rule,             ///< a rule matched
    noRule,           ///< subject to filtering and no rule matched
    notFilterable,    ///< no compatible id in BlockedCompatibleIds
    composite,        ///< a composite parent: its functions are judged one by one
    notJudged,        ///< a root hub or a device that failed its reset
    noControlDevice,  ///< fail closed
    callbackFallback, ///< the service should have been asked but is not there
    service,          ///< the service answered
    controlNode,      ///< the driver's own node
    usbDevice,        ///< a disk: what was decided for its USB device
    sdCardMode,       ///< a memory card: one setting for all of them
    notConcerned,     ///< asked, but the device is none of the kinds the driver filters
    addFailed,        ///< the driver refused the device or failed
    notAsked,         ///< no filter: the class is not covered, or the list does not name the driver
    badFilterList,    ///< a class filter list names a service that is not there
};

struct Explanation {
    Reason reason = Reason::notAsked;
    std::optional<RuleHit> decidedBy;
    std::optional<RuleHit> filterableBy;
    std::string text; ///< one sentence for a person
};

/// The few inner values of a USB filter that people ask for.
struct FilterValues {
    std::uint32_t filterable = 0;
    std::uint32_t mode = 0; ///< 0 unknown, 1 blocked, 2 allowed, 3 read-only
    std::uint32_t ruleType = 0;
    std::vector<std::uint8_t> message; ///< 1,474 bytes
};

/// What became of one device: of one device add, or of a device that no filter was asked about.
struct DeviceOutcome {
    std::string device; ///< the scenario's path for it, or its instance id
    std::string instance;
    std::string setupClass;
    int step = 0;            ///< number of the step that brought it; 0: the end of the scenario
    int depth = 0;           ///< below the first device of its tree that the scenario names
    bool ofScenario = false; ///< false: one that the machine has by itself, such as the USB root hub

    bool asked = false;               ///< the driver's AddDevice was called
    std::string attached;             ///< one of attachedWords()
    std::optional<NTSTATUS> returned; ///< what Plug and Play got
    std::optional<NTSTATUS> callbackStatus;
    std::optional<FilterValues> values;
    bool refusesWrites = false; ///< a disk whose filter took a queue for writes

    bool started = false;
    bool everStarted = false;
    bool hidden = false;
    bool present = true; ///< still in the device tree
    std::uint32_t problem = 0;
    NTSTATUS problemStatus = 0;
    Texts stack;
    std::string security;
    std::string securityBefore;
    bool massStorage = false;  ///< a disk filter will see its disk
    bool coveredClass = false; ///< the driver filters its setup class

    std::string decision;    ///< one of decisionWords()
    std::string enforcement; ///< one of enforcementWords()
    Explanation why;
    std::vector<LogLine> log; ///< lines that this add wrote
};

} // namespace cli
