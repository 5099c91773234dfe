#pragma once

#include "control/control_device.h"
#include "simulator/kernel/clock.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <thread>

namespace fuzz {

/// Waits until it holds. What does not hold after half a minute of the host's time never will.
void await(const std::function<bool()> &holds, const char *what);

/// What the machine does in host threads of their own, since it may have to wait for the service: plugging a device, a
/// rescan, closing a handle. The clock stands still meanwhile, so that all of them come to rest: they are over, or wait
/// for the service, or for one another.
class Errands {
  public:
    Errands(sim::Clock &clock, const ControlDevice &control) : clock_(clock), control_(control) {}
    ~Errands(); ///< to be called when all are over

    void begin(std::function<void()> work);
    std::size_t underWay();
    /// Whether there is room for another one that brings questions with it.
    bool roomForOne() { return underWay() < 3; }
    /// Waits until they have come to rest.
    void rest();
    /// Lets the time of every question and notification pass that waits now.
    void letTimePass();
    /// The same until all are over.
    void finish();

  private:
    struct Errand {
        std::atomic<bool> over = false;
        std::thread thread;
    };
    /// Everything that moves when an errand does.
    struct Sight {
        std::size_t underWay = 0;
        std::size_t queued = 0;  ///< questions and notifications that wait in the driver
        std::size_t waiting = 0; ///< threads that wait with a time-out
        bool operator==(const Sight &) const = default;
    };
    Sight look();

    sim::Clock &clock_;
    const ControlDevice &control_;
    std::list<Errand> errands_;
};

} // namespace fuzz
