#pragma once

#include <functional>
#include <string>

/// The address of the code that called the simulated routine this stands in.
#define SIM_CALL_SITE __builtin_return_address(0)

namespace sim {

/// What a driver did wrong: the rule it broke, in which routine, and the code that called that routine.
struct Violation {
    std::string rule;     ///< short fixed name, e.g. "pool tag", "irql", "critical region", "double completion"
    std::string routine;  ///< the simulated routine that noticed, e.g. "ExFreePoolWithTag"
    std::string message;  ///< one sentence with the values
    std::string callSite; ///< module, symbol and offset of the caller
};

/// Stops the run as a bug check stops a machine: prints the violation to standard error and aborts the process,
/// unless a test installed a handler, which must not return (it may exit the process).
[[noreturn]] void bugCheck(std::string rule, std::string routine, std::string message, const void *callSite);

/// Stops the run because the driver asked for something that the simulated machine does not do.
[[noreturn]] void notSimulated(const char *routine, std::string what, const void *callSite);

/// "0x1a2b" for messages.
std::string hex(unsigned long long value);

/// Replaces what bugCheck does after it composed the violation. An empty function restores the default.
void setBugCheckHandler(std::function<void(const Violation &)> handler);

/// "module!symbol+0x12" for a code address; "unknown" for null.
std::string describeCodeAddress(const void *address);

} // namespace sim
