#include "recorder.h"

#include "../../simulator/framework/framework.h"
#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/setup_classes.h"
#include "../reg/key_paths.h"
#include "../text/display.h"

#include <algorithm>

namespace cli {
namespace {

/// Every id of a device, to show one as written where only the rule that equals it is known.
std::vector<std::u16string> idsOf(const sim::DeviceDescription &device) {
    std::vector<std::u16string> ids;
    for (const auto *list : {&device.compatibleIds, &device.hardwareIds}) {
        if (*list) {
            ids.insert(ids.end(), (*list)->begin(), (*list)->end());
        }
    }
    return ids;
}

bool isMassStorage(const sim::DeviceDescription &device) {
    return device.compatibleIds && std::find(device.compatibleIds->begin(), device.compatibleIds->end(),
                                             u"USB\\Class_08") != device.compatibleIds->end();
}

bool isCoveredClass(const sim::DeviceDescription &device) {
    const auto &lists = sim::machine::driverFilterLists();
    return device.classGuid && std::any_of(lists.begin(), lists.end(), [&](const sim::machine::FilterList &list) {
               return sim::equalNoCase(list.setupClass.guid, *device.classGuid);
           });
}

/// The filters on disks keep nothing by which they could be told apart; what they read does it.
std::string diskFilterKind(const DecisionTrace &trace) {
    if (trace.sdCardModeWasRead()) {
        return "sd-card-filter";
    }
    return trace.policyWasRead() ? "thunderbolt-filter" : "disk-filter";
}

} // namespace

Recorder::Recorder(sim::Machine &machine, std::function<bool(const std::string &)> isOfScenario)
    : machine_(machine), isOfScenario_(std::move(isOfScenario)), traces_(machine.kernel()),
      log_(machine.kernel().files) {
    machine_.setObserver(this);
}

Recorder::~Recorder() {
    machine_.setObserver(nullptr);
}

std::string Recorder::pathOf(const sim::DeviceNode &node) const {
    if (&node == controlNode_) {
        return "control-node";
    }
    const std::string &name = node.description().name;
    return isOfScenario_(name) ? name : visibleText(node.description().instanceId);
}

DeviceOutcome &Recorder::begin(sim::DeviceNode &node) {
    seen_.insert(&node);
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        if (sources_[i].node == &node) { // enumerated again: what was recorded before is history
            sources_[i].node = nullptr;
            outcomes_[i].present = false;
        }
    }
    DeviceOutcome &outcome = outcomes_.emplace_back();
    sources_.emplace_back().node = &node;
    const sim::DeviceDescription &device = node.description();
    outcome.device = pathOf(node);
    outcome.instance = visibleText(device.instanceId);
    outcome.setupClass = classDisplayName(device.classGuid);
    outcome.ofScenario = &node == controlNode_ || isOfScenario_(device.name);
    for (const sim::DeviceNode *above = node.parent(); above != nullptr; above = above->parent()) {
        outcome.depth += isOfScenario_(above->description().name) ? 1 : 0;
    }
    outcome.massStorage = isMassStorage(device);
    outcome.coveredClass = isCoveredClass(device);
    outcome.attached = "not-asked";
    outcome.securityBefore = node.security();
    return outcome;
}

void Recorder::refresh(DeviceOutcome &outcome, const sim::DeviceNode &node) const {
    outcome.started = node.started();
    outcome.everStarted = node.everStarted();
    outcome.hidden = node.hidden();
    outcome.problem = node.problemCode();
    outcome.problemStatus = node.problemStatus();
    outcome.security = node.security();
    outcome.stack.clear();
    for (const std::u16string &driver : node.stack()) {
        outcome.stack.push_back(visibleText(driver));
    }
}

void Recorder::readLog() {
    machine_.settle();
    const std::vector<LogLine> lines = log_.take();
    for (std::vector<LogLine> *log : {&stepLog_, &wholeLog_}) {
        log->insert(log->end(), lines.begin(), lines.end());
    }
    for (DeviceOutcome *add : addsUnderWay_) {
        add->log.insert(add->log.end(), lines.begin(), lines.end());
    }
}

void Recorder::addStarting(sim::DeviceNode &node) {
    const std::lock_guard lock(mutex_);
    if (controlNodeIsStarting_) {
        controlNode_ = &node;
        controlNodeIsStarting_ = false;
    }
    readLog();
    DeviceOutcome &outcome = begin(node);
    outcome.asked = true;
    addsUnderWay_.push_back(&outcome);
    traces_.begin(idsOf(node.description()));
}

std::size_t Recorder::newestOf(const sim::DeviceNode *node) const {
    std::size_t newest = outcomes_.size() - 1;
    while (newest > 0 && sources_[newest].node != node) {
        --newest;
    }
    return newest;
}

void Recorder::addFinished(const sim::AddReport &report) {
    const std::lock_guard lock(mutex_);
    const auto trace = traces_.end();
    const std::size_t place = newestOf(report.node);
    DeviceOutcome &outcome = outcomes_[place];
    outcome.returned = report.returned;
    outcome.callbackStatus = report.callbackStatus;
    outcome.attached = attachedKind(report.attached);
    if (outcome.attached == "disk") {
        outcome.attached = diskFilterKind(*trace);
        outcome.refusesWrites = sim::framework::takesWrites(report.attached);
    }
    outcome.values = readFilterValues(report.attached);
    readLog();
    std::erase(addsUnderWay_, &outcome);
    Observations &seen = sources_[place].seen;
    seen.policyWasRead = trace->policyWasRead();
    seen.rulesWereAsked = trace->rulesWereAsked();
    seen.filterableBy = trace->filterableBy();
    seen.decidedBy = trace->decidedBy();
    seen.driver = readDriverState(machine_.driverObject());
}

void Recorder::nodeChanged(sim::DeviceNode &node) {
    const std::lock_guard lock(mutex_);
    const std::vector<sim::DeviceNode *> nodes = machine_.nodes();
    if (std::find(nodes.begin(), nodes.end(), &node) == nodes.end()) {
        return; // it is leaving; what is recorded is how it was while it was there
    }
    noteUnasked(node);
    for (std::size_t i = outcomes_.size(); i > 0; --i) {
        if (sources_[i - 1].node == &node) {
            return refresh(outcomes_[i - 1], node);
        }
    }
}

void Recorder::noteUnasked(sim::DeviceNode &node) {
    const bool ofScenario = isOfScenario_(node.description().name);
    if (ofScenario && !seen_.contains(&node)) {
        begin(node);
    }
}

void Recorder::endStep() {
    const std::lock_guard lock(mutex_);
    readLog();
    const std::vector<sim::DeviceNode *> nodes = machine_.nodes();
    const std::set<const sim::DeviceNode *> present(nodes.begin(), nodes.end());
    std::erase_if(seen_, [&](const sim::DeviceNode *node) { return !present.contains(node); });
    for (sim::DeviceNode *node : nodes) {
        noteUnasked(*node);
    }
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
        const sim::DeviceNode *&node = sources_[i].node;
        if (node == nullptr) {
            continue;
        }
        if (present.contains(node)) {
            refresh(outcomes_[i], *node);
        } else {
            outcomes_[i].present = false;
            node = nullptr;
        }
        explain(outcomes_[i], sources_[i].seen);
    }
    if (controlNode_ != nullptr && !present.contains(controlNode_)) {
        controlNode_ = nullptr;
    }
}

const DeviceOutcome *Recorder::latest(std::string_view device) const {
    for (auto outcome = outcomes_.rbegin(); outcome != outcomes_.rend(); ++outcome) {
        if (outcome->device == device) {
            return &*outcome;
        }
    }
    return nullptr;
}

bool Recorder::isUnderWay(const DeviceOutcome &outcome) const {
    return std::find(addsUnderWay_.begin(), addsUnderWay_.end(), &outcome) != addsUnderWay_.end();
}

std::vector<LogLine> Recorder::takeStepLog() {
    return std::exchange(stepLog_, {});
}

} // namespace cli
