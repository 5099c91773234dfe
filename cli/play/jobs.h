#pragma once

#include "../../simulator/machine/machine.h"

#include <atomic>
#include <exception>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

namespace cli {

/// What steps do while a process serves the driver: each in a thread of its own, since a device add waits until the
/// process has answered, which a later step does. Between steps everything stands still: a job is over or waits for the
/// process.
class Jobs {
  public:
    explicit Jobs(sim::Machine &machine) : machine_(machine) {}
    ~Jobs(); ///< waits for all of them
    Jobs(const Jobs &) = delete;
    Jobs &operator=(const Jobs &) = delete;

    /// Begins it, and waits until all jobs stand still. Throws what it threw, if that was by then.
    void run(std::string title, std::function<void()> action);
    /// Waits until all jobs stand still: for what happened outside of them. Throws what the first of them threw.
    void settle();
    /// Those that wait, by their titles.
    std::vector<std::string> waiting() const;
    bool any() const { return !jobs_.empty(); }

  private:
    struct Job {
        std::string title;
        std::atomic<bool> over = false;
        std::exception_ptr thrown;
        std::thread thread;
    };

    bool standStill() const;

    sim::Machine &machine_;
    std::list<Job> jobs_;
};

} // namespace cli
