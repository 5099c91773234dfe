#include "json_report.h"

#include "../facts/device_facts.h"
#include "../text/display.h"
#include "../text/status_names.h"

namespace cli {
namespace {

using Json = nlohmann::ordered_json;

Json statusJson(NTSTATUS status) {
    Json json{{"code", statusCode(status)}};
    const std::string_view name = statusName(status);
    json["name"] = name.empty() ? Json() : Json(std::string(name));
    return json;
}

Json statusJson(const std::optional<NTSTATUS> &status) {
    return status ? statusJson(*status) : Json();
}

Json hitJson(const std::optional<RuleHit> &hit) {
    if (!hit) {
        return nullptr;
    }
    return Json{{"value", hit->value}, {"builtInList", hit->builtInList}, {"rule", hit->rule}, {"id", hit->id}};
}

Json logJson(const std::vector<LogLine> &log) {
    Json lines = Json::array();
    for (const LogLine &line : log) {
        lines.push_back(Json{{"time", line.time}, {"level", line.level}, {"text", line.text}});
    }
    return lines;
}

Json deviceJson(const DeviceOutcome &outcome) {
    Json json;
    json["device"] = outcome.device;
    json["instance"] = outcome.instance;
    json["class"] = outcome.setupClass;
    json["step"] = outcome.step > 0 ? Json(outcome.step) : Json();
    json["ofScenario"] = outcome.ofScenario;
    json["asked"] = outcome.asked;
    json["attached"] = outcome.attached;
    json["returned"] = statusJson(outcome.returned);
    json["callbackStatus"] = statusJson(outcome.callbackStatus);
    json["state"] = stateName(outcome);
    json["problem"] = outcome.problem;
    json["problemStatus"] = statusJson(outcome.problemStatus);
    json["hidden"] = outcome.hidden;
    json["everStarted"] = outcome.everStarted;
    json["stack"] = outcome.stack;
    json["security"] = outcome.security.empty() ? Json() : Json(outcome.security);
    json["decision"] = outcome.decision;
    json["enforcement"] = outcome.enforcement;
    json["filterable"] = outcome.values ? Json(outcome.values->filterable != 0) : Json();
    json["mode"] = outcome.values ? Json(outcome.values->mode) : Json();
    json["ruleType"] = outcome.values ? Json(outcome.values->ruleType) : Json();
    json["why"] = Json{{"reason", reasonName(outcome.why.reason)},
                       {"decidedBy", hitJson(outcome.why.decidedBy)},
                       {"filterableBy", hitJson(outcome.why.filterableBy)},
                       {"text", outcome.why.text}};
    json["message"] = outcome.values ? Json(hexText(outcome.values->message)) : Json();
    json["log"] = logJson(outcome.log);
    return json;
}

Json placeJson(const Location &where) {
    return Json{{"file", where.file}, {"line", where.line > 0 ? Json(where.line) : Json()}};
}

Json stepJson(const StepResult &step) {
    Json failures = Json::array();
    for (const Failure &failure : step.failures) {
        Json json = placeJson(failure.where);
        json["what"] = failure.what;
        json["expected"] = failure.expected;
        json["found"] = failure.found;
        failures.push_back(std::move(json));
    }
    return Json{{"step", step.number > 0 ? Json(step.number) : Json()},
                {"title", step.title},
                {"line", step.where.line > 0 ? Json(step.where.line) : Json()},
                {"status", statusJson(step.status)},
                {"fallibleCalls", step.fallibleCalls},
                {"held", step.failures.empty()},
                {"failures", std::move(failures)},
                {"log", logJson(step.log)}};
}

} // namespace

Json jsonOf(const PlayResult &result) {
    Json adds = Json::array();
    for (const DeviceOutcome &outcome : result.outcomes) {
        adds.push_back(deviceJson(outcome));
    }
    Json steps = Json::array();
    for (const StepResult &step : result.steps) {
        steps.push_back(stepJson(step));
    }
    return Json{{"file", result.file},
                {"name", result.name},
                {"usable", true},
                {"held", result.held()},
                {"expectations", result.expectations},
                {"devices", std::move(adds)},
                {"steps", std::move(steps)}};
}

Json jsonOf(const std::string &file, const UnusableFile &unusable) {
    Json problems = Json::array();
    for (const Problem &problem : unusable.problems()) {
        Json json = placeJson(problem.where);
        json["message"] = problem.message;
        problems.push_back(std::move(json));
    }
    return Json{{"file", file}, {"usable", false}, {"held", false}, {"problems", std::move(problems)}};
}

} // namespace cli
