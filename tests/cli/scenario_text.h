#pragma once

#include "cli/scenario/scenario_parser.h"

#include <string>
#include <vector>

namespace cli::test {

/// A scenario from text that stands for the file "s.yaml".
inline Scenario scenarioOf(const std::string &text) {
    return parseScenario(text, "s.yaml");
}

/// Every problem of a scenario's text, one line each; empty when it can be used.
inline std::vector<std::string> problemsOf(const std::string &text) {
    std::vector<std::string> problems;
    try {
        scenarioOf(text);
    } catch (const UnusableFile &unusable) {
        for (const Problem &problem : unusable.problems()) {
            problems.push_back(problem.text());
        }
    }
    return problems;
}

using Lines = std::vector<std::string>;

} // namespace cli::test
