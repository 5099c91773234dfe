#pragma once

#include "../scenario/expectation.h"
#include "play_result.h"
#include "processes.h"

namespace cli {

/// Compares what a scenario expects of a process's request with what became of it; adds failures to the step.
void checkRequest(const std::string &name, const Processes::Request &request, const DeviceExpectation &expectation,
                  StepResult &step);

} // namespace cli
