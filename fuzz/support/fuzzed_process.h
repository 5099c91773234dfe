#pragma once

#include "fuzz/model/control_codes.h"
#include "simulator/process/user_process.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace fuzz {

/// A request that was made, until its answer has been looked at.
struct Made {
    sim::UserProcess::Io io;
    SentCode sent;
    sim::UserProcess::Handle handle = 0;
    unsigned thread = 1;
    bool forgotten = false; ///< the driver never completed it
};

/// A process, and what a model of it says of its requests. The host threads of errands may make requests; everything
/// else is the harness's own thread's.
class FuzzedProcess {
  public:
    using Handle = sim::UserProcess::Handle;

    explicit FuzzedProcess(unsigned id) : process_(id) {}

    bool hasHandle() const { return !access_.empty(); }
    /// The nth of the open ones, counted round; with none, one that never was.
    Handle handle(unsigned nth) const;

    std::uint32_t open(ACCESS_MASK access);
    /// What is to be done so that a handle is closed, or the process dies, by an errand: whoever closes a file may
    /// have to do what was put off until then, and that may ask the service.
    std::function<void()> close(Handle handle);
    std::function<void()> die();
    void cancel(Handle handle);
    void cancelOne(std::size_t nth);
    void endThread(unsigned thread);
    /// What is known of a request before it is made.
    Made prepare(Handle handle, const sim::process::ControlRequest &request) const;
    /// Makes it, in any host thread.
    void make(Made made, sim::process::ControlRequest request);

    /// Takes out what has come back.
    std::vector<Made> takeAnswered();
    /// Every parked request that somebody took back is back.
    bool cancelledOnesAreBack();
    bool everythingIsBack();
    /// What has come back since the last look was forgotten by the driver: somebody else completed it.
    void noteForgotten();

  private:
    template<typename Predicate>
    void noteCancelled(Predicate predicate);

    sim::UserProcess process_;
    std::map<Handle, ACCESS_MASK> access_; ///< of open handles
    std::atomic<bool> dying_ = false;      ///< who dies closes what an errand was to close
    std::mutex mutex_;
    std::vector<Made> made_;
};

} // namespace fuzz
