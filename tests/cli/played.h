#pragma once

#include "cli/play/player.h"
#include "cli/scenario/scenario_parser.h"

#include <string>
#include <vector>

namespace cli::test {

/// Plays a scenario given as text. The driver module is the one beside the tests.
inline PlayResult played(const std::string &text) {
    return play(parseScenario(text, "s.yaml"), PlayOptions());
}

/// Every expectation that was not met and every step that could not be done: "what: expected | found".
inline std::vector<std::string> failureTexts(const PlayResult &result) {
    std::vector<std::string> lines;
    for (const StepResult &step : result.steps) {
        for (const Failure &failure : step.failures) {
            lines.push_back(failure.what + ": " + failure.expected + " | " + failure.found);
        }
    }
    return lines;
}

/// A flash drive as devices of test scenarios; further keys may follow.
inline const std::string stick = R"(instance: 'USB\VID_0781&PID_5581\A1', class: USB, service: USBSTOR,
    hardware-ids: ['USB\VID_0781&PID_5581&REV_0100', 'USB\VID_0781&PID_5581'],
    compatible-ids: ['USB\Class_08&SubClass_06&Prot_50', 'USB\Class_08&SubClass_06', 'USB\Class_08'],
    bus-reported-description: Ultra,
    usb: {vendor-id: 0x0781, product-id: 0x5581, serial: A1, product: Ultra})";

/// A machine with that drive and a policy of one line per value.
inline std::string stickUnder(const std::string &policy) {
    return "policy: {" + policy + "}\ndevices:\n  stick: {" + stick + "}\n";
}

} // namespace cli::test
