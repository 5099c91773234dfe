#include "fuzzed_service.h"

#include "require.h"
#include "simulator/framework/power.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace fuzz {

namespace {

constexpr std::uint32_t waitForNotification = 0x224004;
constexpr std::uint32_t waitForQuestion = 0x226008;
constexpr std::uint32_t listDevices = 0x226014;
constexpr std::uint32_t replyToQuestion = 0x22A004;
constexpr std::uint32_t rescanDevices = 0x22A00F;
constexpr std::uint32_t reloadLogSettings = 0x22A013;
constexpr std::size_t listedBytes = 788;
constexpr std::uint8_t untouched = 0xCC;

std::uint64_t numberAt(const std::vector<std::uint8_t> &bytes, std::size_t offset, std::size_t size) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data() + offset, size);
    return number;
}

std::u16string textAt(const std::vector<std::uint8_t> &bytes, std::size_t offset) {
    std::u16string text;
    while (const auto unit = static_cast<char16_t>(numberAt(bytes, offset + 2 * text.size(), 2))) {
        text += unit;
    }
    return text;
}

} // namespace

FuzzedService::FuzzedService(LivingMachine &machine)
    : machine_(machine), errands_(machine.machine().kernel().clock, control()) {
    for (int count = 0; count < 2; ++count) {
        processes_.push_back(std::make_unique<FuzzedProcess>(++lastProcessId_));
    }
}

void FuzzedService::open(unsigned nth, ACCESS_MASK access) {
    FuzzedProcess &opening = process(nth);
    const bool otherIsThere = process(nth + 1).hasHandle();
    const bool itIsThere = opening.hasHandle();
    const std::uint32_t status = opening.open(access);
    // The last file of a process may be closed a bit later than its last handle.
    const bool right = otherIsThere ? status == accessDenied
                       : itIsThere  ? status == success
                                    : status == success || status == accessDenied;
    require(right, "one process at a time has the device open; status " + std::to_string(status));
}

void FuzzedService::die(unsigned nth) {
    errands_.begin(process(nth).die());
    dead_.push_back(
        std::exchange(processes_[nth % processes_.size()], std::make_unique<FuzzedProcess>(++lastProcessId_)));
}

void FuzzedService::send(unsigned nth, FuzzedProcess::Handle handle, sim::process::ControlRequest request) {
    waitsForNotifications_ |= request.code == waitForNotification;
    FuzzedProcess &sender = process(nth);
    Made made = sender.prepare(handle, request);
    made.sent.powerOff = !powered_;
    if (request.code != rescanDevices) {
        sender.make(std::move(made), std::move(request));
        return;
    }
    // It asks the service about each device, and waits.
    if (errands_.roomForOne()) {
        errands_.begin([&sender, made = std::move(made), request = std::move(request)] { sender.make(made, request); });
    }
}

std::uint64_t FuzzedService::shownId(unsigned nth) const {
    return shown_.empty() ? 1 : shown_[shown_.size() - 1 - nth % shown_.size()];
}

void FuzzedService::reply(unsigned nth, FuzzedProcess::Handle handle, std::uint64_t id, std::uint32_t answer) {
    std::vector<std::uint8_t> bytes(16);
    std::memcpy(bytes.data(), &id, sizeof id);
    std::memcpy(bytes.data() + sizeof id, &answer, sizeof answer);
    send(nth, handle, {replyToQuestion, std::move(bytes), 0, 1});
}

void FuzzedService::letTimePass() {
    timePassed_ = true;
    open_.clear();
    errands_.letTimePass();
}

void FuzzedService::setPower(bool on) {
    if (powered_ != on) {
        powered_ = on;
        sim::framework::requestDevicePower(machine_.controlNode().physicalDevice(), on ? PowerDeviceD0 : PowerDeviceD3,
                                           PowerActionSleep);
    }
}

bool FuzzedService::mayHaveAllowed(const std::u16string &serial) const {
    const auto answers = answers_.find(serial);
    return waitsForNotifications_ ||
           (answers != answers_.end() &&
            std::any_of(answers->second.begin(), answers->second.end(), [](std::uint32_t mode) { return mode != 1; }));
}

void FuzzedService::takeAnswers() {
    for (const auto *group : {&processes_, &dead_}) {
        for (const auto &one : *group) {
            for (const Made &made : one->takeAnswered()) {
                take(made);
            }
        }
    }
}

void FuzzedService::take(const Made &made) {
    const sim::process::PendingIo &io = *made.io;
    const AnsweredCode answer{static_cast<std::uint32_t>(io.status()), io.information()};
    for (std::size_t at = io.received().size(); at < io.output().size(); ++at) {
        require(io.output()[at] == untouched, "a caller's buffer stays as it is beyond what was copied to it");
    }
    if (made.forgotten && answer.status == cancelled) {
        // A pass keeps one request for notifications when it meets an undecided device, and goes on; or any request
        // when the question that it was to take timed out just then.
        require(made.sent.code == waitForNotification || timePassed_, "only what a pass lost is forgotten");
        return;
    }
    const bool closedBefore = made.sent.code == rescanDevices && answer.status == invalidHandle;
    const auto fault = closedBefore ? std::nullopt : faultOf(made.sent, answer);
    require(!fault, "control code " + std::to_string(made.sent.code) + ": " + fault.value_or(""));
    if (made.sent.code == reloadLogSettings && answer.status != accessDenied && answer.status != invalidHandle) {
        require((answer.status == success) == logLevel.has_value(), "a level is read when it is a number");
        requireEqual<LONG>(machine_.driver().logger.level, static_cast<LONG>(logLevel.value_or(0)), "the log level");
    }
    if (made.sent.code == replyToQuestion && answer.status == noMoreEntries) {
        require(!open_.contains(numberAt(io.request().input, 0, 8)), "an open question can be answered");
    }
    if (answer.status != success) {
        return;
    }
    served_.insert(made.sent.code);
    if (made.sent.code == waitForQuestion) {
        takeQuestion(made);
    } else if (made.sent.code == waitForNotification) {
        require(numberAt(io.output(), 0, 4) != 0, "nobody is told of a device that is not decided");
    } else if (made.sent.code == listDevices) {
        takeListing(made);
    } else if (made.sent.code == replyToQuestion) {
        const auto question = open_.find(numberAt(io.request().input, 0, 8));
        require(question != open_.end(), "a reply succeeds once, in time, and to a question that was shown");
        answers_[question->second].insert(static_cast<std::uint32_t>(numberAt(io.request().input, 8, 4)));
        open_.erase(question);
    }
}

void FuzzedService::takeQuestion(const Made &made) {
    const std::vector<std::uint8_t> &message = made.io->output();
    if (numberAt(message, 12, 4) == 0) {
        const std::uint64_t id = numberAt(message, 0, 8);
        require(id != 0 && open_.emplace(id, textAt(message, 280)).second, "open questions have ids of their own");
        shown_.push_back(id);
    }
}

void FuzzedService::takeListing(const Made &made) {
    const std::vector<std::uint8_t> &records = made.io->output();
    const std::size_t count = made.io->information() / listedBytes;
    for (std::size_t nth = 0; nth < count; ++nth) {
        const std::size_t at = nth * listedBytes;
        require(numberAt(records, at, 4) <= 1, "a record is valid or not");
        require(numberAt(records, at + 4, 4) == 0 && numberAt(records, at + 16, 4) == 0,
                "a listing tells neither mode nor rule type");
    }
    if (const auto expected = listedDevices()) {
        requireEqual(count, *expected, "the number of listed devices");
    }
}

void FuzzedService::completeForgotten() {
    const auto noPass = [this] { return __atomic_load_n(&control().m_passesWanted, __ATOMIC_ACQUIRE) == 0; };
    const WDFQUEUE queue = control().m_ioctlQueue;
    const std::vector<WDFREQUEST> kept = sim::framework::requestsWithDriver(queue);
    if (kept.empty() || !noPass()) {
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!noPass() || sim::framework::requestsWithDriver(queue) != kept || !noPass()) {
        return; // a pass had them
    }
    takeAnswers();
    for (const WDFREQUEST request : kept) {
        sim::framework::completeForgotten(request, STATUS_CANCELLED);
    }
    for (const auto *group : {&processes_, &dead_}) {
        for (const auto &one : *group) {
            one->noteForgotten();
        }
    }
    takeAnswers();
}

bool FuzzedService::pairedAsFarAsPossible() {
    const auto queued = [](WDFQUEUE queue) { return sim::framework::queueCounts(queue).queued; };
    return !powered_ || queued(control().m_ioctlQueue) == 0 || queued(control().m_internalIoctlQueue) == 0;
}

void FuzzedService::check() {
    errands_.rest();
    takeAnswers();
    completeForgotten();
    await(
        [this] {
            takeAnswers();
            return sim::framework::queueCounts(control().m_pendingQueue).queued == open_.size();
        },
        "what was asked and shown waits for its reply, and nothing else does");
    await([this] { return pairedAsFarAsPossible(); }, "a question or decision that waits meets a request that waits");
    const auto cancelledOnesAreBack = [](const auto &group) {
        return std::all_of(group.begin(), group.end(), [](const auto &one) { return one->cancelledOnesAreBack(); });
    };
    await([&] { return cancelledOnesAreBack(processes_) && cancelledOnesAreBack(dead_); },
          "what is taken back comes back at once");
    takeAnswers();
}

void FuzzedService::settle() {
    errands_.begin([this] { machine_.machine().settle(); });
    errands_.rest();
}

void FuzzedService::finish() {
    setPower(true);
    check();
    for (unsigned nth = 0; nth < processes_.size(); ++nth) {
        die(nth);
    }
    check();
    timePassed_ = true;
    open_.clear();
    errands_.finish();
    settle();
    errands_.finish();
    check();
    for (const auto &one : dead_) {
        require(one->everythingIsBack(), "a dead process has its requests back");
    }
    takeAnswers();
    requireEqual<ULONG>(control().m_processId, 0, "the registered process of a device that nobody has open");
    requireEqual<ULONG>(control().m_openCount, 0, "the handles that are counted when none is open");
    require(control().m_apiRegistered == FALSE, "without a process no service is registered");
}

} // namespace fuzz
