#include "player.h"

#include "../../simulator/framework/framework.h"
#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/machine.h"
#include "../text/display.h"
#include "disk_steps.h"
#include "expectation_check.h"
#include "jobs.h"
#include "machine_setup.h"
#include "processes.h"
#include "recorder.h"
#include "step_failure.h"
#include "step_faults.h"

#include <fmt/format.h>

#include <set>
#include <stdexcept>

namespace cli {
namespace {

class Playback {
  public:
    Playback(const Scenario &scenario, const PlayOptions &options)
        : scenario_(scenario), options_(options), machine_(machineOptions(scenario, options)) {
        setUp(machine_, scenario_);
        collectNames();
        recorder_.emplace(machine_, [this](const std::string &name) { return names_.contains(name); });
        recorder_->skipPresentFiles();
        check_.emplace(machine_, *recorder_, processes_);
        result_.name = scenario.name;
        result_.file = scenario.file;
    }

    ~Playback() { endJobs(); }
    Playback(const Playback &) = delete;
    Playback &operator=(const Playback &) = delete;

    PlayResult run() {
        if (options_.fault) {
            machine_.kernel().faults.failAt(*options_.fault);
        }
        int number = 0;
        for (const Step &step : scenario_.steps) {
            perform(step, ++number);
        }
        finish();
        result_.expectations = check_->count() + diskExpectations_;
        result_.driverCalls = machine_.kernel().faults.callsSeen(sim::FaultThread::driver);
        result_.workerCalls = machine_.kernel().faults.callsSeen(sim::FaultThread::worker);
        return std::move(result_);
    }

  private:
    void collectNames(const sim::DeviceDescription &device) {
        names_.insert(device.name);
        for (const sim::DeviceDescription &child : device.children) {
            collectNames(child);
        }
    }

    void collectNames() {
        for (const ScenarioDevice &device : scenario_.devices) {
            collectNames(device.description);
        }
    }

    void perform(const Step &step, int number) {
        current_ = {number, step.title, step.where, {}, {}, 0, {}};
        current_.byService = std::holds_alternative<ProcessAction>(step.action);
        std::erase_if(plugged_, [this](const ScenarioDevice *device) { return !isUnderWay(*device); });
        faults_.beginStep(step.faults);
        try {
            perform(step.action);
        } catch (const StepFailure &failure) {
            current_.failures.push_back({step.where, step.title, "to be done", failure.what()});
        } catch (const std::exception &refusal) { // the machine refuses what the file describes
            if (!options_.fault) {                // a step that a failure before it made impossible is only skipped
                throw UnusableFile(step.where, refusal.what());
            }
        }
        current_.fallibleCalls = faults_.endStep();
        endStep();
        noteFault();
        checkExpectations(step);
        checkLeaks(step);
        result_.steps.push_back(std::move(current_));
    }

    /// While a process serves the driver, whatever waits for it is let wait, and the next step comes.
    void perform(const Action &action) {
        if (!processes_.anyOpen() && !jobs_.any()) {
            return std::visit(*this, action);
        }
        jobs_.run(current_.title, [this, &action] {
            std::visit(*this, action);
            machine_.settle();
        });
        if (options_.fault) { // nothing else could end what waits for a request that a failure made the driver forget
            sim::framework::completeAllForgotten();
        }
    }

    /// Ends the processes; what waits for them gives up in time, or with the driver.
    void endJobs() {
        processes_.endAll();
        const auto settle = [this] {
            try {
                jobs_.settle();
            } catch (const std::exception &) { // told where it counts: in the step that began it
            }
        };
        settle();
        for (auto due = machine_.kernel().clock.firstTimeOut(); due && jobs_.any();
             due = machine_.kernel().clock.firstTimeOut()) {
            machine_.kernel().clock.set(*due);
            settle();
        }
        if (jobs_.any()) {
            machine_.unloadDriver();
            settle();
        }
    }

    void addWaiting() {
        for (const std::string &title : jobs_.waiting()) {
            if (!options_.onlyEvents) {
                current_.failures.push_back({current_.where, title, "to end", "it waits for a process"});
            }
        }
    }

    void noteFault() {
        if (result_.failedStep == 0) {
            result_.failedRoutine = machine_.kernel().faults.firstFailed();
            result_.failedStep = result_.failedRoutine.empty() ? 0 : current_.number;
        }
    }

    void checkExpectations(const Step &step) {
        if (options_.onlyEvents) {
            current_.failures.clear(); // a step can become impossible, such as plugging below a hub that failed
            return;
        }
        for (const std::string &unmet : faults_.unmet()) {
            current_.failures.push_back({step.where, "fail", unmet, "it was not reached"});
        }
        for (const ScenarioDevice *device : plugged_) {
            if (!isUnderWay(*device)) {
                check_->check(device->description.name, device->expectations, current_);
            }
        }
        check_->check(step.expectations, current_);
        for (const DiskExpectation &expectation : step.expectations.disks) {
            disks_.check(expectation, current_);
            ++diskExpectations_;
        }
    }

    /// Its add waits for a process, and is over in a later step.
    bool isUnderWay(const ScenarioDevice &device) const {
        const DeviceOutcome *outcome = recorder_->latest(device.description.name);
        return outcome != nullptr && recorder_->isUnderWay(*outcome);
    }

    /// What is reported of a device is how things stood at the end of the step in which its add was over.
    void endStep() {
        recorder_->endStep();
        current_.log = recorder_->takeStepLog();
        const std::deque<DeviceOutcome> &outcomes = recorder_->outcomes();
        result_.outcomes.resize(outcomes.size());
        for (std::size_t i = firstOpen_; i < outcomes.size(); ++i) {
            if (result_.outcomes[i].step == 0) {
                result_.outcomes[i] = outcomes[i];
                result_.outcomes[i].step = recorder_->isUnderWay(outcomes[i]) ? 0 : current_.number;
            }
        }
        while (firstOpen_ < outcomes.size() && !recorder_->isUnderWay(outcomes[firstOpen_])) {
            ++firstOpen_;
        }
    }

    /// A driver that left something behind is wrong, whether or not the scenario asks.
    void checkLeaks(const Step &step) {
        if (!std::holds_alternative<UnloadDriver>(step.action) || machine_.driverLoaded()) {
            return;
        }
        for (const DeviceExpectation &expectation : step.expectations.general) {
            if (expectation.key == "leaks") {
                return;
            }
        }
        addLeaks();
    }

    void addLeaks() {
        Texts leaks;
        for (const std::string &leak : machine_.leaks()) {
            leaks.push_back(visibleText(leak));
        }
        if (!leaks.empty()) {
            current_.failures.push_back({current_.where, "leaks", "nothing left behind", describeFact(leaks)});
        }
    }

    void finish() {
        if (!machine_.driverLoaded()) {
            disks_.end();
            return;
        }
        current_ = {0, "end", {scenario_.file, 0}, {}, {}, 0, {}};
        addWaiting();
        machine_.kernel().files.setMounted(true);
        machine_.kernel().workers.resume();
        endJobs();
        disks_.end();
        machine_.unloadDriver();
        endStep();
        addLeaks();
        result_.steps.push_back(std::move(current_));
    }

    sim::DeviceNode &present(const std::string &name) {
        sim::DeviceNode *node = nullptr;
        if (name != "control-node") {
            node = machine_.find(name);
        } else if (controlNode_ != nullptr) {
            for (sim::DeviceNode *known : machine_.nodes()) {
                node = known == controlNode_ ? known : node;
            }
        }
        if (node == nullptr) {
            throw StepFailure(fmt::format("'{}' is not plugged in", name));
        }
        return *node;
    }

    sim::DeviceNode &presentDisk(const std::string &name) {
        sim::DeviceNode &node = present(name);
        if (node.hasMedium()) {
            return node;
        }
        throw StepFailure(fmt::format("'{}' is no disk", name));
    }

    std::shared_ptr<sim::Volume> mounted(const std::string &disk) {
        auto volume = machine_.volume(disk);
        if (volume == nullptr) {
            throw StepFailure(fmt::format("nothing is mounted on '{}'", disk));
        }
        return volume;
    }

    void plug(const ScenarioDevice &device) {
        if (machine_.find(device.description.name) != nullptr) {
            throw StepFailure(fmt::format("'{}' is plugged in already", device.description.name));
        }
        sim::DeviceNode *parent = nullptr;
        if (device.parent == "root") {
            parent = &machine_.rootNode();
        } else if (device.parent == "pci") {
            parent = &machine_.pciRoot();
        } else if (!device.parent.empty()) {
            parent = &present(device.parent);
        }
        if (parent != nullptr && parent != &machine_.rootNode() && !parent->started()) {
            throw StepFailure(fmt::format("its parent '{}' is not started", device.parent));
        }
        machine_.plug(device.description, parent);
        if (checkedOnce_.insert(&device).second) {
            plugged_.push_back(&device);
        }
    }

    const ScenarioDevice &declared(const std::string &name) const {
        for (const ScenarioDevice &device : scenario_.devices) {
            if (device.description.name == name) {
                return device;
            }
        }
        throw StepFailure(fmt::format("'{}' comes with its parent and can't be plugged in by itself", name));
    }

    const Scenario &scenario_;
    const PlayOptions &options_;
    sim::Machine machine_;
    std::set<std::string> names_;
    std::optional<Recorder> recorder_;
    std::optional<ExpectationCheck> check_;
    PlayResult result_;
    StepResult current_;
    Processes processes_;
    Jobs jobs_{machine_};
    DiskSteps disks_{machine_};
    std::size_t diskExpectations_ = 0;
    StepFaults faults_{machine_.kernel().faults, !options_.onlyEvents};
    std::size_t firstOpen_ = 0;                   ///< of the outcomes: those before are as they will be reported
    std::vector<const ScenarioDevice *> plugged_; ///< in this step, for the first time; and those that were under way
    std::set<const ScenarioDevice *> checkedOnce_;
    const sim::DeviceNode *controlNode_ = nullptr;

  public: // what steps do
    void operator()(const LoadDriver &) {
        recorder_->driverIsLoading();
        current_.status = machine_.loadDriver();
    }

    void operator()(const UnloadDriver &) {
        if (!machine_.driverLoaded()) {
            throw StepFailure("the driver is not loaded");
        }
        machine_.unloadDriver();
    }

    void operator()(const StartControlNode &) {
        recorder_->controlNodeIsStarting(true);
        controlNode_ = &machine_.plugControlNode();
        recorder_->controlNodeIsStarting(false);
    }

    void operator()(const PlugDevices &action) {
        for (const std::string &name : action.names) {
            plug(declared(name));
        }
        if (action.names.empty()) {
            for (const ScenarioDevice &device : scenario_.devices) {
                if (machine_.find(device.description.name) == nullptr) {
                    plug(device);
                }
            }
        }
    }

    void operator()(const UnplugDevices &action) {
        for (const std::string &name : action.names) {
            machine_.unplug(present(name));
        }
    }

    void operator()(const ReplugDevices &action) {
        for (const std::string &name : action.names) {
            sim::DeviceNode &node = present(name);
            recorder_->forget(node);
            const bool isControlNode = &node == controlNode_;
            recorder_->controlNodeIsStarting(isControlNode);
            sim::DeviceNode &again = machine_.replug(node);
            recorder_->controlNodeIsStarting(false);
            controlNode_ = isControlNode ? &again : controlNode_;
        }
    }

    void operator()(const ChangeRegistry &action) { applyRegistry(machine_, action.changes); }

    void operator()(const ChangeFiles &action) {
        applyFiles(machine_, action.files);
        recorder_->skipPresentFiles();
    }

    void operator()(const SetClock &action) {
        sim::Clock &clock = machine_.kernel().clock;
        clock.set(action.localTime + clock.bias());
    }

    void operator()(const AdvanceClock &action) { machine_.kernel().clock.advance(action.units); }

    void operator()(const PlanFaults &action) { faults_.setStanding(action.faults); }

    void operator()(const SetVolume &action) {
        sim::FileSystem &files = machine_.kernel().files;
        files.setMounted(action.state != SetVolume::State::unmounted);
        files.setFull(action.state == SetVolume::State::full);
    }

    void operator()(const SetLogWorkers &action) {
        if (action.paused) {
            machine_.kernel().workers.pause();
        } else {
            machine_.kernel().workers.resume();
        }
    }

    void operator()(const ChangePower &action) {
        switch (action.to) {
        case ChangePower::To::sleep:
            return machine_.sleep();
        case ChangePower::To::wake:
            return machine_.wake();
        case ChangePower::To::shutDown:
            return machine_.shutDown();
        }
    }

    void operator()(const UseDisk &action) { disks_.use(action, presentDisk(action.disk), current_); }

    void operator()(const AwaitDisk &action) {
        if (!disks_.await(action.disk, current_)) {
            throw StepFailure(fmt::format("no request to '{}' is under way", action.disk));
        }
    }

    void operator()(const SaveToVolume &action) {
        current_.status = mounted(action.disk)->save(action.offset, action.data);
    }

    void operator()(const WriteBack &action) { mounted(action.disk)->writeBack(); }

    void operator()(const MountMedium &action) {
        if (machine_.mount(presentDisk(action.disk)) == nullptr) {
            throw StepFailure(fmt::format("'{}' does not run", action.disk));
        }
    }

    void operator()(const ChangeMedium &action) {
        sim::Medium &medium = machine_.medium(presentDisk(action.disk).description().name);
        medium.setPresent(action.present.value_or(medium.present()));
        medium.setWriteProtected(action.writeProtected.value_or(medium.writeProtected()));
        if (action.stalled) {
            *action.stalled ? medium.stall() : medium.resume();
        }
    }

    void operator()(const ProcessAction &action) { current_.status = processes_.perform(action); }

    void operator()(const OnlyExpect &) {}
};

} // namespace

PlayResult play(const Scenario &scenario, const PlayOptions &options) {
    return Playback(scenario, options).run();
}

} // namespace cli
