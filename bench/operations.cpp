#include "operations.h"

#include "channel_operations.h"
#include "disk_operations.h"
#include "log/log.h"
#include "machine_room.h"

#include <fmt/format.h>

#include <memory>

namespace bench {
namespace {

constexpr unsigned linesAtOnce = 1000; // how many records wait for the writer at most

/// A line as the driver writes them, with a text and two numbers.
[[gnu::noinline]] void logLine(unsigned number) {
    LOG_INFO(L"Send notification, device type = ", decimal(number), L", device mode = ", decimal(2),
             L", device name = ", literal(L"Ultra"));
}

std::function<void()> ruleOperation(unsigned rules, bool reload, bool match) {
    auto room = std::make_shared<RuleRoom>(rules);
    return [room, reload, match] {
        if (reload) {
            room->reload();
        }
        if (match) {
            (void)room->match();
        }
    };
}

/// Lines that the level keeps back.
std::function<void()> suppressedLine() {
    auto room = std::make_shared<MachineRoom>();
    return [room] { logLine(1); };
}

/// Lines that are built and queued; the writer comes only when many wait.
std::function<void()> submittedLine() {
    auto room = std::make_shared<MachineRoom>();
    setLogLevel(static_cast<LONG>(LogLevel::info));
    room->kernel.workers.pause();
    auto waiting = std::make_shared<unsigned>(0);
    return [room, waiting] {
        logLine(++*waiting);
        if (*waiting == linesAtOnce) {
            room->kernel.workers.resume();
            room->kernel.workers.drain();
            room->kernel.workers.pause();
            *waiting = 0;
        }
    };
}

/// A thousand lines from the first statement to the last byte in the file.
std::function<void()> writtenLines() {
    auto room = std::make_shared<MachineRoom>();
    setLogLevel(static_cast<LONG>(LogLevel::info));
    return [room] {
        room->kernel.workers.pause();
        for (unsigned line = 0; line < linesAtOnce; ++line) {
            logLine(line);
        }
        room->kernel.workers.resume();
        room->kernel.workers.drain();
    };
}

std::vector<Operation> allOperations() {
    std::vector<Operation> all;
    for (const unsigned rules : {10u, 100u, 1'000u, 10'000u}) {
        const std::uint64_t counted = rules >= 1'000 ? 1 : 20;
        all.push_back(
            {fmt::format("reload/{}", rules), [=] { return ruleOperation(rules, true, false); }, counted, 1, ""});
        all.push_back(
            {fmt::format("match/{}", rules), [=] { return ruleOperation(rules, false, true); }, counted, 1, ""});
        all.push_back(
            {fmt::format("decision/{}", rules), [=] { return ruleOperation(rules, true, true); }, counted, 1, ""});
    }
    all.push_back({"log/suppressed", suppressedLine, 1000, 1, ""});
    all.push_back({"log/submitted", submittedLine, 500, 1, ""});
    all.push_back({"log/written", writtenLines, 1, linesAtOnce, "*writeLogRecord*"});
    addChannelOperations(all);
    addDiskOperations(all);
    return all;
}

} // namespace

const std::vector<Operation> &operations() {
    static const std::vector<Operation> all = allOperations();
    return all;
}

[[gnu::noinline]] void runOperation(const std::function<void()> &operation) {
    operation();
    asm volatile("" ::: "memory"); // no tail call: the function's own frame says where counting begins and ends
}

} // namespace bench
