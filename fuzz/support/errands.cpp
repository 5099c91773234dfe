#include "errands.h"

#include "require.h"
#include "simulator/framework/framework.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz {

namespace {

using HostClock = std::chrono::steady_clock;

constexpr std::chrono::seconds longestWait{30};
/// Errands that wait for one another sleep and show nothing for as long.
constexpr std::chrono::milliseconds stillness{1};
constexpr std::chrono::microseconds moment{20};
constexpr std::int64_t beyondEveryTimeOut = 40 * 10'000'000LL;

/// No other thread of this process runs, or would if the host let it (proc_pid_stat(5): the state behind the name).
bool everybodySleeps() {
    const std::string own = std::to_string(gettid());
    std::error_code gone;
    for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task", gone)) {
        if (thread.path().filename() == own) {
            continue;
        }
        std::string line;
        std::getline(std::ifstream(thread.path() / "stat"), line);
        const std::size_t name = line.rfind(") ");
        if (name == std::string::npos || line[name + 2] != 'S') {
            return false;
        }
    }
    return true;
}

} // namespace

void await(const std::function<bool()> &holds, const char *what) {
    const auto limit = HostClock::now() + longestWait;
    while (!holds()) {
        require(HostClock::now() < limit, what);
        std::this_thread::sleep_for(moment);
    }
}

Errands::~Errands() {
    require(underWay() == 0, "every errand was waited for");
}

void Errands::begin(std::function<void()> work) {
    Errand &errand = errands_.emplace_back();
    errand.thread = std::thread([&errand, work = std::move(work)] {
        work();
        errand.over = true;
    });
}

std::size_t Errands::underWay() {
    std::erase_if(errands_, [](Errand &errand) {
        if (!errand.over) {
            return false;
        }
        errand.thread.join();
        return true;
    });
    return errands_.size();
}

Errands::Sight Errands::look() {
    const auto queued = [](WDFQUEUE queue) { return sim::framework::queueCounts(queue).queued; };
    return {underWay(), std::size_t{queued(control_.m_internalIoctlQueue)} + queued(control_.m_pendingQueue),
            clock_.timedWaits()};
}

void Errands::rest() {
    Sight seen = look();
    auto since = HostClock::now();
    const auto limit = since + longestWait;
    while (seen.underWay != 0) {
        require(HostClock::now() < limit, "what the machine does comes to rest");
        const bool timedOut = clock_.firstTimeOut().value_or(clock_.now() + 1) <= clock_.now();
        if (!timedOut && seen.queued == seen.underWay && seen.waiting == seen.underWay) {
            return;
        }
        std::this_thread::sleep_for(moment);
        const Sight now = look();
        if (now != seen || timedOut || !everybodySleeps()) {
            seen = now;
            since = HostClock::now();
        } else if (HostClock::now() - since > stillness) {
            return;
        }
    }
}

void Errands::letTimePass() {
    clock_.advance(beyondEveryTimeOut);
    rest();
}

void Errands::finish() {
    await(
        [this] {
            letTimePass();
            return underWay() == 0;
        },
        "everything comes to an end once its time is over");
}

} // namespace fuzz
