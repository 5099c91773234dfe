#pragma once

#include "../../simulator/machine/machine.h"
#include "../facts/device_outcome.h"
#include "decision_explainer.h"
#include "decision_trace.h"
#include "log_watch.h"

#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Records what becomes of every device: one outcome per device add, and one for each device that no filter was asked
/// about. Devices that the machine has by itself are marked as such. Devices may be added by several threads at once;
/// whoever asks for results does so while none is at work.
class Recorder : public sim::MachineObserver {
  public:
    /// `isOfScenario` tells the scenario's devices by their description's name.
    Recorder(sim::Machine &machine, std::function<bool(const std::string &)> isOfScenario);
    ~Recorder() override;

    void addStarting(sim::DeviceNode &node) override;
    void addFinished(const sim::AddReport &report) override;
    void nodeChanged(sim::DeviceNode &node) override;

    /// The node of the driver's own is called "control-node" from then on.
    void controlNodeIsStarting(bool starting) { controlNodeIsStarting_ = starting; }
    /// Devices that are about to be enumerated again count as new ones.
    void forget(const sim::DeviceNode &node) { seen_.erase(&node); }

    /// Brings everything up to date at the end of a step.
    void endStep();

    const std::deque<DeviceOutcome> &outcomes() const { return outcomes_; }
    /// The newest outcome of a device; null when there is none.
    const DeviceOutcome *latest(std::string_view device) const;

    /// Whether the driver has yet to say what becomes of it; it waits for a process then.
    bool isUnderWay(const DeviceOutcome &outcome) const;

    std::vector<LogLine> takeStepLog(); ///< lines since the last call
    const std::vector<LogLine> &wholeLog() const { return wholeLog_; }
    void skipPresentFiles() { log_.skipPresent(); }
    void driverIsLoading() { log_.newRun(); }

  private:
    DeviceOutcome &begin(sim::DeviceNode &node);
    void refresh(DeviceOutcome &outcome, const sim::DeviceNode &node) const;
    std::string pathOf(const sim::DeviceNode &node) const;
    void readLog();
    std::size_t newestOf(const sim::DeviceNode *node) const; ///< place in outcomes_
    void noteUnasked(sim::DeviceNode &node);

    struct Source {
        const sim::DeviceNode *node = nullptr;
        Observations seen;
    };

    std::recursive_mutex mutex_;
    sim::Machine &machine_;
    std::function<bool(const std::string &)> isOfScenario_;
    DecisionTraces traces_;
    LogWatch log_;
    std::deque<DeviceOutcome> outcomes_;
    std::deque<Source> sources_;                ///< beside outcomes_
    std::vector<DeviceOutcome *> addsUnderWay_; ///< each gets the lines that are written meanwhile
    std::set<const sim::DeviceNode *> seen_;
    std::vector<LogLine> stepLog_;
    std::vector<LogLine> wholeLog_;
    bool controlNodeIsStarting_ = false;
    const sim::DeviceNode *controlNode_ = nullptr;
};

} // namespace cli
