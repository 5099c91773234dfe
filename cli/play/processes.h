#pragma once

#include "../../simulator/process/user_process.h"
#include "../scenario/process_actions.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// The user-mode processes of a scenario and the requests that they made. Steps that can't be done as things stand
/// throw StepFailure.
class Processes {
  public:
    using Request = sim::UserProcess::Io;

    /// Does it. The status of what was opened or asked for; STATUS_PENDING for a request that the driver keeps.
    std::optional<NTSTATUS> perform(const ProcessAction &action);
    void endAll();
    bool anyOpen() const;

    /// The newest request of a name; null when none was made.
    Request request(const std::string &name) const;

  private:
    struct Process {
        explicit Process(unsigned id) : user(id) {}
        sim::UserProcess user;
        std::map<std::string, sim::UserProcess::Handle> handles; ///< those with names
    };

    NTSTATUS open(const OpenControlDevice &action);
    void close(const CloseControlDevice &action);
    NTSTATUS send(const MakeRequest &action);
    NTSTATUS reply(const ReplyToQuestion &action);
    void cancel(const CancelRequest &action);
    void end(const EndThread &action);
    void end(const EndProcess &action);

    Process &process(unsigned id);
    static sim::UserProcess::Handle handle(Process &process, const std::string &name);
    Request known(const std::string &name) const;

    std::map<unsigned, std::unique_ptr<Process>> processes_;
    std::map<std::string, Request> requests_;
};

} // namespace cli
