#include "processes.h"

#include "../../include/myrtelhaven_service.h"
#include "../../simulator/kernel/strings.h"
#include "step_failure.h"

#include <fmt/format.h>

#include <cstring>

namespace cli {
namespace {

/// A visitor made of functions.
template<typename... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};

std::u16string controlDeviceName() {
    return reinterpret_cast<const char16_t *>(MYRTELHAVEN_SYMBOLIC_LINK);
}

} // namespace

std::optional<NTSTATUS> Processes::perform(const ProcessAction &action) {
    using Status = std::optional<NTSTATUS>;
    return std::visit(Overloaded{
                          [&](const OpenControlDevice &step) -> Status { return open(step); },
                          [&](const CloseControlDevice &step) -> Status { return close(step), std::nullopt; },
                          [&](const MakeRequest &step) -> Status { return send(step); },
                          [&](const ReplyToQuestion &step) -> Status { return reply(step); },
                          [&](const CancelRequest &step) -> Status { return cancel(step), std::nullopt; },
                          [&](const EndThread &step) -> Status { return end(step), std::nullopt; },
                          [&](const EndProcess &step) -> Status { return end(step), std::nullopt; },
                      },
                      action);
}

bool Processes::anyOpen() const {
    for (const auto &[id, process] : processes_) {
        if (!process->user.handles().empty() || process->user.pending() != 0) {
            return true;
        }
    }
    return false;
}

void Processes::endAll() {
    for (const auto &[id, process] : processes_) {
        process->user.die();
    }
}

Processes::Process &Processes::process(unsigned id) {
    if (id != 0) {
        const auto found = processes_.find(id);
        if (found == processes_.end()) {
            throw StepFailure(fmt::format("process {} does not have the control device open", id));
        }
        return *found->second;
    }
    Process *only = nullptr;
    for (const auto &[known, process] : processes_) {
        if (!process->user.handles().empty()) {
            if (only != nullptr) {
                throw StepFailure("several processes have the control device open; say which");
            }
            only = process.get();
        }
    }
    if (only == nullptr) {
        throw StepFailure("no process has the control device open");
    }
    return *only;
}

sim::UserProcess::Handle Processes::handle(Process &process, const std::string &name) {
    if (!name.empty()) {
        const auto found = process.handles.find(name);
        if (found == process.handles.end()) {
            throw StepFailure(fmt::format("process {} has no handle '{}'", process.user.id(), name));
        }
        return found->second;
    }
    const auto handles = process.user.handles();
    if (handles.empty()) {
        throw StepFailure(fmt::format("process {} does not have the control device open", process.user.id()));
    }
    return handles.back();
}

Processes::Request Processes::request(const std::string &name) const {
    const auto found = requests_.find(name);
    return found == requests_.end() ? nullptr : found->second;
}

Processes::Request Processes::known(const std::string &name) const {
    Request found = request(name);
    if (found == nullptr) {
        throw StepFailure(fmt::format("there is no request '{}'", name));
    }
    return found;
}

NTSTATUS Processes::open(const OpenControlDevice &action) {
    auto &process = processes_[action.process];
    if (process == nullptr) {
        process = std::make_unique<Process>(action.process);
    }
    sim::UserProcess::Handle opened = 0;
    const NTSTATUS status = process->user.open(controlDeviceName(), opened, action.access);
    if (NT_SUCCESS(status) && !action.handle.empty()) {
        process->handles[action.handle] = opened;
    }
    return status;
}

void Processes::close(const CloseControlDevice &action) {
    Process &owner = process(action.process);
    if (!owner.user.close(handle(owner, action.handle))) {
        throw StepFailure(fmt::format("handle '{}' is closed already", action.handle));
    }
}

NTSTATUS Processes::send(const MakeRequest &action) {
    Process &sender = process(action.process);
    const Request made = sender.user.begin(handle(sender, action.handle),
                                           {action.code, action.input, action.outputBytes, action.thread});
    if (!action.name.empty()) {
        requests_[action.name] = made;
    }
    return made->isBack() ? made->status() : STATUS_PENDING;
}

NTSTATUS Processes::reply(const ReplyToQuestion &action) {
    CallbackReply reply{action.id, action.answer, 0};
    if (!action.question.empty()) {
        const Request shown = known(action.question);
        if (!shown->isBack() || shown->received().size() < sizeof(reply.requestId)) {
            throw StepFailure(fmt::format("request '{}' was shown no question", action.question));
        }
        std::memcpy(&reply.requestId, shown->output().data(), sizeof(reply.requestId));
    }
    MakeRequest request = action.request;
    request.input.resize(sizeof(reply));
    std::memcpy(request.input.data(), &reply, sizeof(reply));
    return send(request);
}

void Processes::cancel(const CancelRequest &action) {
    if (!known(action.request)->cancel()) {
        throw StepFailure(fmt::format("request '{}' was back before", action.request));
    }
}

void Processes::end(const EndThread &action) {
    process(action.process).user.endThread(action.thread);
}

void Processes::end(const EndProcess &action) {
    process(action.process).user.die();
}

} // namespace cli
