#pragma once

#include "../../simulator/machine/machine.h"
#include "../scenario/scenario.h"
#include "play_result.h"
#include "processes.h"
#include "recorder.h"

#include <vector>

namespace cli {

/// Compares what a scenario expects with what was seen. Every expectation that is looked at is counted.
class ExpectationCheck {
  public:
    ExpectationCheck(sim::Machine &machine, const Recorder &recorder, const Processes &processes)
        : machine_(machine), recorder_(recorder), processes_(processes) {}

    /// Expectations of one step, whose result so far is `step`; adds its failures.
    void check(const StepExpectations &expectations, StepResult &step);
    /// Expectations that stand with a device.
    void check(const std::string &device, const std::vector<DeviceExpectation> &expectations, StepResult &step);

    std::size_t count() const { return count_; }

  private:
    void checkDevice(const std::string &device, const DeviceExpectation &expectation, StepResult &step);
    void checkMessage(const DeviceOutcome &outcome, const DeviceExpectation &expectation, StepResult &step);
    void checkGeneral(const DeviceExpectation &expectation, StepResult &step);
    void checkRegistry(const RegistryExpectation &expectation, StepResult &step);
    void checkFile(const FileExpectation &expectation, StepResult &step);
    Fact stepFact(const std::string &key, const StepResult &step) const;

    sim::Machine &machine_;
    const Recorder &recorder_;
    const Processes &processes_;
    std::size_t count_ = 0;
};

} // namespace cli
