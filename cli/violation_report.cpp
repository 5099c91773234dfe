#include "violation_report.h"

#include "../simulator/kernel/violation.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace cli {

ViolationReport::ViolationReport() {
    sim::setBugCheckHandler([this](const sim::Violation &violation) {
        std::cout.flush();
        fmt::print(stderr, "{}: the driver broke a rule ({}): {}: {}\n  called from {}\n", playing_, violation.rule,
                   violation.routine, violation.message, violation.callSite);
        std::abort();
    });
}

ViolationReport::~ViolationReport() {
    sim::setBugCheckHandler({});
}

void ViolationReport::playing(std::string what) {
    playing_ = std::move(what);
}

} // namespace cli
