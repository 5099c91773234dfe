#pragma once

#include "device_outcome.h"
#include "fact.h"

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// How the value of an expectation key is written in a scenario.
enum class FactKind { word, mode, text, status, number, flag, texts, lines, message, bytes, notification, listing };

/// A key under which scenarios and reports speak of an observed fact.
struct FactKey {
    std::string_view name;
    FactKind kind;
    std::vector<std::string> words; ///< what a word may be
};

/// Keys for one device, e.g. "attached", "decision", "rule".
const std::vector<FactKey> &deviceKeys();

/// Keys for a request that a process made, e.g. "pending", "bytes".
const std::vector<FactKey> &requestKeys();

/// Keys for a step as a whole, e.g. "status", "log", "leaks".
const std::vector<FactKey> &stepKeys();

/// The fact that `key` (one of deviceKeys, "message" apart) names.
Fact deviceFact(const DeviceOutcome &outcome, std::string_view key);

/// "allowed", "blocked", "read-only", "unknown" for the modes 2, 1, 3 and 0; "mode N" for any other.
std::string modeName(std::uint32_t mode);

/// "rule", "default", "not-filterable" …
std::string reasonName(Reason reason);

/// One word for the state of a device node: "started", "disabled", "failed-add" …
std::string stateName(const DeviceOutcome &outcome);

} // namespace cli
