#include "step_parser.h"

#include "../../simulator/machine/machine.h"
#include "disk_parser.h"
#include "expectation_parser.h"
#include "process_parser.h"
#include "registry_parser.h"
#include "suggestion.h"
#include "time_parser.h"
#include "usb_parser.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <functional>

namespace cli {
namespace {

std::vector<std::string> parseNames(const YamlNode &node) {
    std::vector<std::string> names;
    for (const YamlNode &item : node.items()) {
        if (const auto name = item.text("a device")) {
            names.push_back(*name);
        }
    }
    if (names.empty() && !node.isNull()) {
        node.problem("names no device");
    }
    return names;
}

Action parsePlug(const YamlNode &node) {
    if (node.isScalar() && node.text("a device") == "all") {
        return PlugDevices{};
    }
    const auto names = parseNames(node);
    if (names.empty()) {
        node.problem("'plug' needs a device, a list of devices, or all");
    }
    return PlugDevices{names};
}

FaultPlanned parseFault(const YamlNode &node) {
    FaultPlanned fault;
    MapReader reader(node, "fail");
    if (const auto call = reader.take("call")) {
        fault.routine = call->text("call").value_or(std::string());
    }
    if (const auto nth = reader.take("nth")) {
        fault.nth = nth->number("nth", ~std::uint64_t{0} >> 1).value_or(1);
        if (fault.nth == 0) {
            nth->problem("nth counts from 1");
        }
    }
    if (const auto all = reader.take("all-after")) {
        fault.allAfter = all->flag("all-after").value_or(false);
    }
    if (const auto status = reader.take("status")) {
        fault.status = parseStatusNode(*status, "status");
        if (fault.routine.empty()) {
            status->problem("'status' needs the 'call' that fails with it");
        }
    }
    reader.finish();
    return fault;
}

Faults parseFaults(const YamlNode &node) {
    Faults faults;
    if (node.isScalar() && node.text("fail") == "none") {
        return faults;
    }
    for (const YamlNode &item : node.items()) {
        faults.push_back(parseFault(item));
    }
    return faults;
}

Action parseDelete(const YamlNode &node) {
    ChangeRegistry change;
    for (const YamlNode &item : node.items()) {
        if (const auto name = parseUtf16(item, "a value's name")) {
            change.changes.push_back(
                {RegOperation::Kind::deleteValue, sim::Machine::parametersKey(), *name, {}, item.where().line});
        }
    }
    return change;
}

Action parseClock(const YamlNode &node) {
    const auto text = node.text("clock");
    const auto time = text ? parseDateTime(*text) : std::nullopt;
    if (text && !time) {
        node.problem(fmt::format("clock must be a local time such as 2024-03-07 9:05:01.042, found '{}'", *text));
    }
    return SetClock{time.value_or(0)};
}

Action parseAdvance(const YamlNode &node) {
    const auto text = node.text("advance");
    const auto units = text ? parseDuration(*text) : std::nullopt;
    if (text && !units) {
        node.problem(fmt::format("advance must be a duration such as 250ms, 5s, 2m, 1h or 3d, found '{}'", *text));
    }
    return AdvanceClock{units.value_or(0)};
}

Action parseVolume(const YamlNode &node) {
    const auto word = node.word("volume", {"mounted", "unmounted", "full"});
    if (word == "unmounted") {
        return SetVolume{SetVolume::State::unmounted};
    }
    return SetVolume{word == "full" ? SetVolume::State::full : SetVolume::State::mounted};
}

struct ActionName {
    std::string name;
    bool alone; ///< stands without a value
    std::function<Action(const YamlNode &)> parse;
};

const std::vector<ActionName> &actionNames() {
    static const std::vector<ActionName> names{
        {"load", true, [](const YamlNode &) { return LoadDriver(); }},
        {"unload", true, [](const YamlNode &) { return UnloadDriver(); }},
        {"start-control-node", true, [](const YamlNode &) { return StartControlNode(); }},
        {"plug", false, parsePlug},
        {"unplug", false, [](const YamlNode &node) { return UnplugDevices{parseNames(node)}; }},
        {"replug", false, [](const YamlNode &node) { return ReplugDevices{parseNames(node)}; }},
        {"set", false, [](const YamlNode &node) { return ChangeRegistry{parsePolicy(node)}; }},
        {"delete", false, parseDelete},
        {"registry", false, [](const YamlNode &node) { return ChangeRegistry{parseRegistryChanges(node)}; }},
        {"reg-file", false, [](const YamlNode &node) { return ChangeRegistry{parseRegFiles(node)}; }},
        {"files", false, [](const YamlNode &node) { return ChangeFiles{parseTempFiles(node)}; }},
        {"open", false, [](const YamlNode &node) { return ProcessAction(parseOpen(node)); }},
        {"close", false, [](const YamlNode &node) { return ProcessAction(parseClose(node)); }},
        {"request", false, [](const YamlNode &node) { return ProcessAction(parseRequest(node)); }},
        {"reply", false, [](const YamlNode &node) { return ProcessAction(parseReply(node)); }},
        {"cancel", false, [](const YamlNode &node) { return ProcessAction(parseCancel(node)); }},
        {"end-thread", false, [](const YamlNode &node) { return ProcessAction(parseEndThread(node)); }},
        {"die", false, [](const YamlNode &node) { return ProcessAction(parseEndProcess(node)); }},
        {"sleep", true, [](const YamlNode &) { return ChangePower{ChangePower::To::sleep}; }},
        {"wake", true, [](const YamlNode &) { return ChangePower{ChangePower::To::wake}; }},
        {"shut-down", true, [](const YamlNode &) { return ChangePower{ChangePower::To::shutDown}; }},
        {"read", false, parseRead},
        {"write", false, parseWrite},
        {"disk-control", false, parseDiskControl},
        {"await", false, parseAwait},
        {"save", false, parseSave},
        {"write-back", false, parseWriteBack},
        {"mount", false, parseMount},
        {"medium", false, parseMedium},
        {"clock", false, parseClock},
        {"advance", false, parseAdvance},
        {"volume", false, parseVolume},
        {"log-workers", false,
         [](const YamlNode &node) {
             return SetLogWorkers{node.word("log-workers", {"paused", "running"}) == "paused"};
         }},
    };
    return names;
}

std::vector<std::string> actionWords() {
    std::vector<std::string> words;
    for (const ActionName &known : actionNames()) {
        words.push_back(known.name);
    }
    words.insert(words.end(), {"fail", "expect"});
    return words;
}

/// The one device that a step is about; empty when there is none or several.
std::string onlyDevice(const Action &action) {
    const std::vector<std::string> *names = nullptr;
    if (const auto *plug = std::get_if<PlugDevices>(&action)) {
        names = &plug->names;
    } else if (const auto *replug = std::get_if<ReplugDevices>(&action)) {
        names = &replug->names;
    } else if (std::holds_alternative<StartControlNode>(action)) {
        return "control-node";
    }
    return names && names->size() == 1 ? names->front() : std::string();
}

std::string titleOf(const std::string &action, const YamlNode &value) {
    if (value.isScalar()) {
        return action + " " + value.text(action).value_or(std::string());
    }
    if (value.isList()) {
        std::string title = action;
        for (const YamlNode &item : value.items()) {
            title += item.isScalar() ? " " + item.text(action).value_or(std::string()) : std::string(" …");
        }
        return title;
    }
    const bool ofProcess =
        action == "open" || action == "close" || action == "request" || action == "reply" || action == "end-thread";
    std::string title = action;
    for (const YamlEntry &entry : value.entries()) {
        title += (title == action ? " " : ", ") + entry.name;
        if (ofProcess && entry.value.isScalar()) {
            title += " " + entry.value.text(entry.name).value_or(std::string());
        }
    }
    return title;
}

Step parseWord(const YamlNode &node) {
    Step step;
    step.where = node.where();
    const auto word = node.text("a step");
    const auto known = std::find_if(actionNames().begin(), actionNames().end(),
                                    [&](const ActionName &name) { return word == name.name; });
    if (known == actionNames().end()) {
        node.problem(fmt::format("unknown step '{}'{}", *word, didYouMean(*word, actionWords())));
    } else if (!known->alone) {
        node.problem(fmt::format("step '{}' needs a value", *word));
    } else {
        step.action = known->parse(node);
        step.title = *word;
    }
    return step;
}

Step parseMap(const YamlNode &node) {
    Step step;
    step.where = node.where();
    MapReader reader(node, "step");
    std::vector<std::string> found;
    for (const ActionName &known : actionNames()) {
        const auto value = reader.take(known.name);
        if (!value) {
            continue;
        }
        found.push_back(known.name);
        if (known.alone && !value->isNull()) {
            value->problem(fmt::format("step '{}' takes no value; 'expect' and 'fail' stand beside it", known.name));
        }
        step.action = known.parse(*value);
        step.title = titleOf(known.name, *value);
    }
    if (found.size() > 1) {
        node.problem(fmt::format("a step does one thing; found {}", fmt::join(found, ", ")));
    }
    if (const auto fail = reader.take("fail")) {
        if (found.empty()) {
            step.action = PlanFaults{parseFaults(*fail)};
            step.title = "fail";
            found.emplace_back("fail");
        } else {
            step.faults = parseFaults(*fail);
        }
    }
    if (const auto expect = reader.take("expect")) {
        step.expectations = parseStepExpectations(*expect, onlyDevice(step.action));
        if (found.empty()) {
            step.title = "expect";
        }
        found.emplace_back("expect");
    }
    reader.finish();
    if (found.empty()) {
        node.problem(fmt::format("a step needs one of {}", fmt::join(actionWords(), ", ")));
    }
    return step;
}

} // namespace

std::vector<Step> parseSteps(const YamlNode &node) {
    std::vector<Step> steps;
    if (!node.isList()) {
        node.problem(fmt::format("steps must be a list, found {}", node.kind()));
    }
    for (const YamlNode &item : node.items()) {
        steps.push_back(item.isScalar() ? parseWord(item) : parseMap(item));
    }
    return steps;
}

} // namespace cli
