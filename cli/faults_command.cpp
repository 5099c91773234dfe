#include "faults_command.h"

#include "command.h"
#include "faults/fault_check.h"
#include "play/player.h"
#include "play_command.h"
#include "scenario/scenario_parser.h"
#include "violation_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace cli {
namespace {

/// One scenario under every single failure.
class FaultRuns {
  public:
    FaultRuns(const std::string &file, const FaultArguments &arguments, ViolationReport &violations, std::ostream &err)
        : file_(file), arguments_(arguments), violations_(violations), err_(err), scenario_(readScenario(file)) {}

    /// True when every run kept to what is allowed.
    bool run() {
        sound_ = playOnce({});
        if (!sound_.held()) {
            err_ << file_ << ": leaves something behind even when nothing fails\n";
            return false;
        }
        for (const sim::FaultThread thread : {sim::FaultThread::driver, sim::FaultThread::worker}) {
            const std::uint64_t calls = sound_.fallibleCalls(thread);
            const std::uint64_t failing = arguments_.atMost == 0 ? calls : std::min(calls, arguments_.atMost);
            for (std::uint64_t i = 0; i < failing; ++i) {
                const std::uint64_t nth = 1 + i * calls / failing;
                check({thread, nth, false});
                check({thread, nth, true});
            }
        }
        return problems_ == 0;
    }

    std::string summary() const {
        return fmt::format(
            "{}: {} calls that can fail and {} of workers, {} runs: {}; {} devices open because a policy, "
            "settings, an enumerator or the registration could not be had\n",
            file_, sound_.fallibleCalls(sim::FaultThread::driver), sound_.fallibleCalls(sim::FaultThread::worker),
            runs_, problems_ == 0 ? std::string("held") : fmt::format("{} problems", problems_), openedAsMeant_);
    }

  private:
    PlayResult playOnce(std::optional<sim::FaultPoint> fault) {
        PlayOptions options;
        options.driver = arguments_.driver;
        options.fault = fault;
        options.onlyEvents = true;
        return play(scenario_, options);
    }

    void check(const sim::FaultPoint &fault) {
        const std::string where = describe(fault);
        violations_.playing(where);
        const PlayResult result = playOnce(fault);
        ++runs_;
        openedAsMeant_ += openedAsMeant(sound_, result);
        for (const std::string &problem : faultProblems(sound_, result, !fault.andAllAfter)) {
            err_ << where << " (" << result.failedRoutine << "): " << problem << "\n";
            ++problems_;
        }
    }

    std::string describe(const sim::FaultPoint &fault) const {
        return fmt::format("{}: {} call {} failing{}", file_,
                           fault.thread == sim::FaultThread::driver ? "driver" : "worker", fault.nth,
                           fault.andAllAfter ? " and all after it" : "");
    }

    std::string file_;
    const FaultArguments &arguments_;
    ViolationReport &violations_;
    std::ostream &err_;
    Scenario scenario_;
    PlayResult sound_;
    std::size_t runs_ = 0;
    std::size_t problems_ = 0;
    std::size_t openedAsMeant_ = 0;
};

} // namespace

int playWithFaults(const FaultArguments &arguments, std::ostream &out, std::ostream &err) {
    int status = exitHeld;
    ViolationReport violations;
    for (const std::string &path : arguments.paths) {
        try {
            for (const std::string &file : scenarioFiles(path)) {
                violations.playing(file);
                FaultRuns runs(file, arguments, violations, err);
                if (!runs.run() && status == exitHeld) {
                    status = exitNotMet;
                }
                out << runs.summary();
                out.flush();
            }
        } catch (const UnusableFile &unusable) {
            status = exitUnusable;
            for (const Problem &problem : unusable.problems()) {
                err << problem.text() << "\n";
            }
        }
    }
    return status;
}

} // namespace cli
