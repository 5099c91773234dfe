#pragma once

#include "../../simulator/machine/machine.h"
#include "../scenario/scenario.h"
#include "play_result.h"

#include <deque>
#include <map>

namespace cli {

/// What programs and people do at disks. Requests that nobody waits for stay here until they are awaited.
class DiskSteps {
  public:
    explicit DiskSteps(sim::Machine &machine) : machine_(machine) {}

    /// Opens the disk, makes the request, closes it again; the status and the bytes that came go into `step`. A
    /// request that is not waited for keeps the disk open.
    void use(const UseDisk &action, sim::DeviceNode &disk, StepResult &step);
    /// The oldest request to that disk that nobody has waited for. False when there is none.
    bool await(const std::string &disk, StepResult &step);
    /// The program that made such requests ends; what is stalled goes on.
    void end();

    /// Compares; adds what was not met to the step's failures.
    void check(const DiskExpectation &expectation, StepResult &step) const;

  private:
    struct Waiting {
        sim::UserProcess::Handle handle;
        sim::UserProcess::Io io;
    };
    sim::UserProcess::Io begin(const UseDisk &action, sim::UserProcess::Handle handle);
    void finish(const Waiting &one, StepResult &step);
    void checkMedium(const DiskExpectation &expectation, StepResult &step) const;
    void checkVolume(const DiskExpectation &expectation, StepResult &step) const;
    void checkRequests(const DiskExpectation &expectation, StepResult &step) const;

    sim::Machine &machine_;
    sim::UserProcess program_{1000};
    std::map<std::string, std::deque<Waiting>> waiting_;
};

} // namespace cli
