#pragma once

#include "simulator/process/user_process.h"
#include "tests/behaviour/support/service_message.h"

#include <atomic>
#include <functional>
#include <thread>

namespace behaviour {

/// A service that runs: a thread of a process that keeps requests for questions parked and answers what it is asked.
class AnsweringService {
  public:
    /// The mode for a device; called in the service's thread.
    using Rule = std::function<std::uint32_t(const MessageBytes &question)>;

    AnsweringService(sim::UserProcess &process, sim::UserProcess::Handle handle, unsigned parked, Rule rule);
    ~AnsweringService(); ///< stops answering; what is parked stays so
    AnsweringService(const AnsweringService &) = delete;
    AnsweringService &operator=(const AnsweringService &) = delete;

    unsigned questions() const { return questions_; }
    unsigned decisions() const { return decisions_; } ///< told of, not asked about

  private:
    void work();
    void look();
    void handle(const sim::UserProcess::Io &shown);
    sim::UserProcess::Io park();

    sim::UserProcess &process_;
    const sim::UserProcess::Handle handle_;
    const Rule rule_;
    std::vector<sim::UserProcess::Io> parked_;
    std::atomic<unsigned> questions_ = 0;
    std::atomic<unsigned> decisions_ = 0;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

} // namespace behaviour
