#pragma once

#include "../../simulator/kernel/faults.h"
#include "../facts/device_outcome.h"
#include "../scenario/problem.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// An expectation that was not met, or a step that could not be done.
struct Failure {
    Location where;
    std::string what; ///< e.g. "stick: decision"
    std::string expected;
    std::string found;
};

struct StepResult {
    int number = 0; ///< 1-based; 0 for the end that every scenario has
    std::string title;
    Location where;
    std::optional<NTSTATUS> status; ///< of a load, or of a request
    std::vector<LogLine> log;       ///< all lines that the step wrote
    std::uint64_t fallibleCalls = 0;
    std::vector<Failure> failures;
    std::optional<std::vector<std::uint8_t>> received{}; ///< by a request
    bool byService = false;                              ///< a step of a service process
};

/// Everything that playing one scenario showed.
struct PlayResult {
    std::string name;
    std::string file;
    std::deque<DeviceOutcome> outcomes;
    std::vector<StepResult> steps;
    std::size_t expectations = 0;  ///< how many were checked
    std::uint64_t driverCalls = 0; ///< fallible calls of all steps, without those of worker threads
    std::uint64_t workerCalls = 0; ///< those of worker threads
    std::string failedRoutine;     ///< of the first call that was made to fail
    int failedStep = 0;            ///< number of the step in which that was

    std::uint64_t fallibleCalls(sim::FaultThread thread) const {
        return thread == sim::FaultThread::driver ? driverCalls : workerCalls;
    }

    bool held() const {
        for (const StepResult &step : steps) {
            if (!step.failures.empty()) {
                return false;
            }
        }
        return true;
    }
};

} // namespace cli
