#include "player.h"

#include "../../simulator/framework/framework.h"
#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/machine.h"
#include "../reg/registry_listing.h"
#include "../text/display.h"
#include "disk_steps.h"
#include "expectation_check.h"
#include "jobs.h"
#include "machine_setup.h"
#include "processes.h"
#include "recorder.h"
#include "step_actions.h"
#include "step_failure.h"
#include "step_faults.h"

#include <fmt/format.h>

#include <fstream>
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
        actions_.emplace(StepActions::Stage{scenario_, machine_, *recorder_, processes_, disks_, faults_, current_});
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
        keepRegistry();
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
        for (const ScenarioDevice *device : actions_->takeNewlyPlugged()) {
            plugged_.push_back(device);
        }
        endStep();
        noteFault();
        checkExpectations(step);
        checkLeaks(step);
        result_.steps.push_back(std::move(current_));
    }

    /// While a process serves the driver, whatever waits for it is let wait, and the next step comes.
    void perform(const Action &action) {
        if (!processes_.anyOpen() && !jobs_.any()) {
            return actions_->perform(action);
        }
        jobs_.run(current_.title, [this, &action] {
            actions_->perform(action);
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

    /// With the files of the machine, when they are kept.
    void keepRegistry() {
        if (!options_.keepFiles.empty()) {
            std::ofstream(machine_.kernel().files.systemRoot() / "registry.reg")
                << registryListing(machine_.kernel().registry);
        }
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
    std::optional<StepActions> actions_;
    std::size_t firstOpen_ = 0;                   ///< of the outcomes: those before are as they will be reported
    std::vector<const ScenarioDevice *> plugged_; ///< in this step, for the first time; and those that were under way
};

} // namespace

PlayResult play(const Scenario &scenario, const PlayOptions &options) {
    return Playback(scenario, options).run();
}

} // namespace cli
