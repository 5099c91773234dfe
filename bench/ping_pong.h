#pragma once

#include "myrtelhaven_service.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace bench {

/// The least that a question and its answer can cost: another thread is handed a copy of a message and gives a number
/// back, with one mutex and one condition variable.
class PingPong {
  public:
    PingPong();
    ~PingPong();
    PingPong(const PingPong &) = delete;
    PingPong &operator=(const PingPong &) = delete;

    std::uint32_t ask(const ServiceMessage &message);

  private:
    enum class Turn { asker, answerer, nobody };
    void work();

    std::mutex mutex_;
    std::condition_variable changed_;
    Turn turn_ = Turn::asker;
    ServiceMessage message_{};
    std::uint32_t answer_ = 0;
    std::thread thread_;
};

} // namespace bench
