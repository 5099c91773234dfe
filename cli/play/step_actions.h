#pragma once

#include "../scenario/scenario.h"
#include "disk_steps.h"
#include "processes.h"
#include "recorder.h"
#include "step_faults.h"

#include <set>
#include <utility>
#include <vector>

namespace cli {

/// Does to the machine what steps say.
class StepActions {
  public:
    /// Whatever steps act on, and where the result of the present step goes.
    struct Stage {
        const Scenario &scenario;
        sim::Machine &machine;
        Recorder &recorder;
        Processes &processes;
        DiskSteps &disks;
        StepFaults &faults;
        StepResult &step;
    };

    explicit StepActions(const Stage &stage) : stage_(stage) {}

    /// Throws StepFailure for what can't be done as things stand.
    void perform(const Action &action) { std::visit(*this, action); }
    /// Devices that were plugged in for the first time since the last call.
    std::vector<const ScenarioDevice *> takeNewlyPlugged() { return std::exchange(newlyPlugged_, {}); }

    void operator()(const LoadDriver &action);
    void operator()(const UnloadDriver &action);
    void operator()(const StartControlNode &action);
    void operator()(const PlugDevices &action);
    void operator()(const UnplugDevices &action);
    void operator()(const ReplugDevices &action);
    void operator()(const ChangeRegistry &action);
    void operator()(const ChangeFiles &action);
    void operator()(const SetClock &action);
    void operator()(const AdvanceClock &action);
    void operator()(const PlanFaults &action);
    void operator()(const SetVolume &action);
    void operator()(const SetLogWorkers &action);
    void operator()(const ChangePower &action);
    void operator()(const UseDisk &action);
    void operator()(const AwaitDisk &action);
    void operator()(const SaveToVolume &action);
    void operator()(const WriteBack &action);
    void operator()(const MountMedium &action);
    void operator()(const ChangeMedium &action);
    void operator()(const ProcessAction &action);
    void operator()(const OnlyExpect &) {}

  private:
    sim::DeviceNode &present(const std::string &name);
    sim::DeviceNode &presentDisk(const std::string &name);
    std::shared_ptr<sim::Volume> mounted(const std::string &disk);
    void plug(const ScenarioDevice &device);
    const ScenarioDevice &declared(const std::string &name) const;

    const Stage stage_;
    std::vector<const ScenarioDevice *> newlyPlugged_;
    std::set<const ScenarioDevice *> plugged_; ///< ever
    const sim::DeviceNode *controlNode_ = nullptr;
};

} // namespace cli
