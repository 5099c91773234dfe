#pragma once

#include "simulator/kernel/clock.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace races {

/// Lets a second pass on the machine's clock every millisecond.
class Ticker {
  public:
    explicit Ticker(sim::Clock &clock)
        : thread_([this, &clock] {
              while (ticking_) {
                  clock.advance(10'000'000);
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          }) {}
    ~Ticker() {
        ticking_ = false;
        thread_.join();
    }
    Ticker(const Ticker &) = delete;
    Ticker &operator=(const Ticker &) = delete;

  private:
    std::atomic<bool> ticking_ = true;
    std::thread thread_; // last: it begins when it is made
};

} // namespace races
