#include "expectation_check.h"

#include "../../simulator/kernel/strings.h"
#include "../facts/device_facts.h"
#include "../facts/message_fields.h"
#include "../text/display.h"
#include "driver_contexts.h"
#include "log_watch.h"
#include "request_check.h"

#include <fmt/format.h>

namespace cli {
namespace {

Texts linesOf(const std::vector<LogLine> &log) {
    Texts lines;
    for (const LogLine &line : log) {
        lines.push_back(line.withoutTime());
    }
    return lines;
}

void report(StepResult &step, const Location &where, std::string what, const std::optional<Mismatch> &mismatch) {
    if (mismatch) {
        step.failures.push_back({where, std::move(what), mismatch->expected, mismatch->found});
    }
}

Texts visible(const std::vector<std::string> &texts) {
    Texts list;
    for (const std::string &text : texts) {
        list.push_back(visibleText(text));
    }
    return list;
}

} // namespace

void ExpectationCheck::check(const StepExpectations &expectations, StepResult &step) {
    for (const auto &[device, expectation] : expectations.devices) {
        checkDevice(device, expectation, step);
    }
    for (const auto &[request, expectation] : expectations.requests) {
        ++count_;
        checkRequest(request, processes_.request(request), expectation, step);
    }
    for (const DeviceExpectation &expectation : expectations.general) {
        checkGeneral(expectation, step);
    }
    for (const RegistryExpectation &expectation : expectations.registry) {
        checkRegistry(expectation, step);
    }
    for (const FileExpectation &expectation : expectations.files) {
        checkFile(expectation, step);
    }
}

void ExpectationCheck::check(const std::string &device, const std::vector<DeviceExpectation> &expectations,
                             StepResult &step) {
    for (const DeviceExpectation &expectation : expectations) {
        checkDevice(device, expectation, step);
    }
}

void ExpectationCheck::checkDevice(const std::string &device, const DeviceExpectation &expectation, StepResult &step) {
    ++count_;
    const DeviceOutcome *outcome = recorder_.latest(device);
    const std::string what = device + ": " + expectation.key;
    if (outcome == nullptr) {
        return report(step, expectation.where, what, Mismatch{"a device that was plugged in", "it never was"});
    }
    if (expectation.key == "message") {
        return checkMessage(*outcome, expectation, step);
    }
    report(step, expectation.where, what, compare(expectation.expected, deviceFact(*outcome, expectation.key)));
}

void ExpectationCheck::checkMessage(const DeviceOutcome &outcome, const DeviceExpectation &expectation,
                                    StepResult &step) {
    const std::string what = outcome.device + ": message";
    const Fact whole = outcome.values ? Fact(hexText(outcome.values->message)) : Fact(Absent());
    report(step, expectation.where, what, compare(expectation.expected, whole));
    for (const auto &[name, expected] : expectation.expected.fields) {
        for (const MessageField &field : messageFields()) {
            if (field.name == name) {
                const Fact found = outcome.values ? messageFact(outcome.values->message, field) : Fact(Absent());
                report(step, expectation.where, what + " " + name, compare(Expected{expected, {}, {}, {}}, found));
            }
        }
    }
}

Fact ExpectationCheck::stepFact(const std::string &key, const StepResult &step) const {
    if (key == "status") {
        return step.status ? Fact(StatusFact{*step.status}) : Fact(Absent());
    }
    if (key == "bytes") {
        return step.received ? Fact(hexText(*step.received)) : Fact(Absent());
    }
    if (key == "loaded") {
        return machine_.driverLoaded();
    }
    if (key == "whole-log") {
        return linesOf(recorder_.wholeLog());
    }
    if (key == "file-names") {
        return visible(machine_.kernel().files.tempFiles());
    }
    if (key == "leaks") {
        return visible(machine_.leaks());
    }
    if (key == "fallible-calls") {
        return step.fallibleCalls;
    }
    if (key == "service-process" || key == "service-handles") {
        const auto state = readDriverState(machine_.driverObject());
        if (!state || state->serviceProcess == 0) {
            return Absent();
        }
        return std::uint64_t{key == "service-process" ? state->serviceProcess : state->serviceHandles};
    }
    return linesOf(step.log); // "log", "step-log"
}

void ExpectationCheck::checkGeneral(const DeviceExpectation &expectation, StepResult &step) {
    ++count_;
    report(step, expectation.where, expectation.key, compare(expectation.expected, stepFact(expectation.key, step)));
}

void ExpectationCheck::checkRegistry(const RegistryExpectation &expectation, StepResult &step) {
    ++count_;
    const sim::Registry &registry = machine_.kernel().registry;
    const auto yesNo = [](bool there) { return std::string(there ? "there" : "absent"); };
    if (!expectation.name) {
        const bool found = registry.keyExists(expectation.key);
        if (found != expectation.exists) {
            report(step, expectation.where, "key " + visibleText(expectation.key),
                   Mismatch{yesNo(expectation.exists), yesNo(found)});
        }
        return;
    }
    const auto found = registry.value(expectation.key, *expectation.name);
    const ValueData data = found ? ValueData{found->type, found->data} : ValueData{};
    if (found.has_value() == expectation.exists && (!found || data == expectation.value)) {
        return;
    }
    report(step, expectation.where,
           fmt::format("value {} of {}", visibleText(*expectation.name), visibleText(expectation.key)),
           Mismatch{expectation.exists ? describeValue(expectation.value) : "absent",
                    found ? describeValue(data) : "absent"});
}

void ExpectationCheck::checkFile(const FileExpectation &expectation, StepResult &step) {
    ++count_;
    const std::string what = "file " + expectation.name;
    const auto found = machine_.kernel().files.tempFile(expectation.name);
    if (found.has_value() != expectation.exists) {
        return report(step, expectation.where, what,
                      Mismatch{expectation.exists ? "there" : "absent", found ? "there" : "absent"});
    }
    if (!found) {
        return;
    }
    if (expectation.size && *expectation.size != found->size()) {
        report(step, expectation.where, what + " size",
               Mismatch{fmt::format("{}", *expectation.size), fmt::format("{}", found->size())});
    }
    if (expectation.bytes && *expectation.bytes != *found) {
        report(step, expectation.where, what,
               compare(Expected{Fact(visibleText(*expectation.bytes)), {}, {}, {}}, visibleText(*found)));
    }
    report(step, expectation.where, what + " lines",
           compare(Expected{std::nullopt, expectation.lines, {}, {}}, visible(splitLogLines(*found))));
}

} // namespace cli
