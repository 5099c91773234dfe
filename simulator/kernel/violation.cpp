#include "violation.h"

#include "code_address.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace sim {

namespace {

struct Handler {
    std::mutex mutex;
    std::function<void(const Violation &)> function;
};

Handler &handler() {
    static Handler instance;
    return instance;
}

} // namespace

void bugCheck(std::string rule, std::string routine, std::string message, const void *callSite) {
    const Violation violation{std::move(rule), std::move(routine), std::move(message), describeCodeAddress(callSite)};
    std::function<void(const Violation &)> function;
    {
        std::lock_guard lock(handler().mutex);
        function = handler().function;
    }
    if (function) {
        function(violation);
    } else {
        std::fprintf(stderr, "bug check [%s] %s: %s\n  called from %s\n", violation.rule.c_str(),
                     violation.routine.c_str(), violation.message.c_str(), violation.callSite.c_str());
        std::fflush(stderr);
    }
    std::abort();
}

void notSimulated(const char *routine, std::string what, const void *callSite) {
    bugCheck("not simulated", routine, std::move(what), callSite);
}

std::string hex(unsigned long long value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", value);
    return text;
}

void setBugCheckHandler(std::function<void(const Violation &)> function) {
    std::lock_guard lock(handler().mutex);
    handler().function = std::move(function);
}

} // namespace sim
