#include "device_facts.h"

#include <fmt/format.h>

#include <functional>
#include <map>
#include <utility>

namespace cli {
namespace {

const std::vector<std::pair<Reason, std::string>> &reasons() {
    static const std::vector<std::pair<Reason, std::string>> names{
        {Reason::rule, "rule"},
        {Reason::noRule, "default"},
        {Reason::notFilterable, "not-filterable"},
        {Reason::composite, "composite"},
        {Reason::notJudged, "not-judged"},
        {Reason::noControlDevice, "no-control-device"},
        {Reason::callbackFallback, "callback-fallback"},
        {Reason::service, "service"},
        {Reason::controlNode, "control-node"},
        {Reason::usbDevice, "usb-device"},
        {Reason::sdCardMode, "sd-card-mode"},
        {Reason::notConcerned, "not-concerned"},
        {Reason::addFailed, "add-failed"},
        {Reason::notAsked, "not-asked"},
        {Reason::badFilterList, "bad-filter-list"},
    };
    return names;
}

std::vector<std::string> reasonWords() {
    std::vector<std::string> words;
    for (const auto &[reason, name] : reasons()) {
        words.push_back(name);
    }
    return words;
}

Fact textOrAbsent(const std::string &text) {
    return text.empty() ? Fact(Absent()) : Fact(text);
}

Fact statusOrAbsent(const std::optional<NTSTATUS> &status) {
    return status ? Fact(StatusFact{*status}) : Fact(Absent());
}

Fact valueFact(const DeviceOutcome &outcome, std::uint32_t FilterValues::*member) {
    return outcome.values ? Fact(std::uint64_t{(*outcome.values).*member}) : Fact(Absent());
}

Fact hitFact(const std::optional<RuleHit> &hit, std::string RuleHit::*member) {
    return hit ? Fact((*hit).*member) : Fact(Absent());
}

Fact logFact(const DeviceOutcome &outcome) {
    Texts lines;
    for (const LogLine &line : outcome.log) {
        lines.push_back(line.withoutTime());
    }
    return lines;
}

using Getter = std::function<Fact(const DeviceOutcome &)>;

struct DeviceKey {
    FactKey key;
    Getter get;
};

const std::vector<DeviceKey> &table() {
    using O = const DeviceOutcome &;
    static const std::vector<DeviceKey> keys{
        {{"attached",
          FactKind::word,
          {"usb-filter", "control-device", "disk-filter", "sd-card-filter", "thunderbolt-filter", "nothing",
           "not-asked"}},
         [](O o) { return o.attached; }},
        {{"status", FactKind::status, {}}, [](O o) { return statusOrAbsent(o.returned); }},
        {{"callback-status", FactKind::status, {}}, [](O o) { return statusOrAbsent(o.callbackStatus); }},
        {{"state",
          FactKind::word,
          {"started", "disabled", "failed-add", "bad-filter-list", "failed", "removed", "not-started", "gone"}},
         [](O o) { return stateName(o); }},
        {{"problem", FactKind::number, {}}, [](O o) { return std::uint64_t{o.problem}; }},
        {{"problem-status", FactKind::status, {}}, [](O o) { return StatusFact{o.problemStatus}; }},
        {{"ever-started", FactKind::flag, {}}, [](O o) { return o.everStarted; }},
        {{"hidden", FactKind::flag, {}}, [](O o) { return o.hidden; }},
        {{"stack", FactKind::texts, {}}, [](O o) { return o.stack; }},
        {{"security", FactKind::text, {}}, [](O o) { return textOrAbsent(o.security); }},
        {{"filterable", FactKind::flag, {}},
         [](O o) { return o.values ? Fact(o.values->filterable != 0) : Fact(Absent()); }},
        {{"mode", FactKind::mode, {}}, [](O o) { return valueFact(o, &FilterValues::mode); }},
        {{"rule-type", FactKind::number, {}}, [](O o) { return valueFact(o, &FilterValues::ruleType); }},
        {{"decision", FactKind::word, {"allowed", "read-only", "blocked", "unknown", "failed", "none"}},
         [](O o) { return o.decision; }},
        {{"enforcement",
          FactKind::word,
          {"nothing", "disabled-and-hidden", "deny-write-entry", "left-to-disk-filter", "writes-refused", "add-failed",
           "no-filter"}},
         [](O o) { return o.enforcement; }},
        {{"why", FactKind::word, reasonWords()}, [](O o) { return reasonName(o.why.reason); }},
        {{"value", FactKind::text, {}}, [](O o) { return hitFact(o.why.decidedBy, &RuleHit::value); }},
        {{"rule", FactKind::text, {}}, [](O o) { return hitFact(o.why.decidedBy, &RuleHit::rule); }},
        {{"id", FactKind::text, {}}, [](O o) { return hitFact(o.why.decidedBy, &RuleHit::id); }},
        {{"filterable-rule", FactKind::text, {}}, [](O o) { return hitFact(o.why.filterableBy, &RuleHit::rule); }},
        {{"filterable-id", FactKind::text, {}}, [](O o) { return hitFact(o.why.filterableBy, &RuleHit::id); }},
        {{"built-in-list", FactKind::flag, {}},
         [](O o) { return o.why.filterableBy ? Fact(o.why.filterableBy->builtInList) : Fact(Absent()); }},
        {{"explanation", FactKind::text, {}}, [](O o) { return textOrAbsent(o.why.text); }},
        {{"message", FactKind::message, {}}, [](O) { return Absent(); }},
        {{"log", FactKind::lines, {}}, logFact},
    };
    return keys;
}

} // namespace

const std::vector<FactKey> &deviceKeys() {
    static const std::vector<FactKey> keys = [] {
        std::vector<FactKey> list;
        for (const DeviceKey &entry : table()) {
            list.push_back(entry.key);
        }
        return list;
    }();
    return keys;
}

const std::vector<FactKey> &requestKeys() {
    static const std::vector<FactKey> keys{
        {"pending", FactKind::flag, {}},
        {"status", FactKind::status, {}},
        {"information", FactKind::number, {}},
        {"bytes", FactKind::bytes, {}},
        {"text", FactKind::text, {}},
        {"message", FactKind::message, {}},
        {"notification", FactKind::notification, {}},
        {"devices", FactKind::listing, {}},
    };
    return keys;
}

const std::vector<FactKey> &stepKeys() {
    static const std::vector<FactKey> keys{
        {"status", FactKind::status, {}},
        {"bytes", FactKind::bytes, {}},
        {"loaded", FactKind::flag, {}},
        {"log", FactKind::lines, {}},
        {"step-log", FactKind::lines, {}},
        {"whole-log", FactKind::lines, {}},
        {"file-names", FactKind::lines, {}},
        {"leaks", FactKind::lines, {}},
        {"fallible-calls", FactKind::number, {}},
        {"service-process", FactKind::number, {}},
        {"service-handles", FactKind::number, {}},
    };
    return keys;
}

Fact deviceFact(const DeviceOutcome &outcome, std::string_view key) {
    for (const DeviceKey &entry : table()) {
        if (entry.key.name == key) {
            return entry.get(outcome);
        }
    }
    return Absent();
}

std::string modeName(std::uint32_t mode) {
    constexpr const char *names[] = {"unknown", "blocked", "allowed", "read-only"};
    return mode < 4 ? names[mode] : fmt::format("mode {}", mode);
}

std::string reasonName(Reason reason) {
    for (const auto &[known, name] : reasons()) {
        if (known == reason) {
            return name;
        }
    }
    return {};
}

std::string stateName(const DeviceOutcome &outcome) {
    static const std::map<std::uint32_t, std::string> problems{
        {19, "bad-filter-list"}, {24, "removed"}, {29, "disabled"}, {31, "failed-add"}};
    if (!outcome.present) {
        return "gone";
    }
    if (outcome.problem == 0) {
        return outcome.started ? "started" : "not-started";
    }
    const auto known = problems.find(outcome.problem);
    return known == problems.end() ? "failed" : known->second;
}

} // namespace cli
