#pragma once

#include "cli/play/player.h"
#include "cli/scenario/scenario_parser.h"

#include <string>

namespace cli::test {

/// Plays a scenario given as text. The driver module is the one beside the tests.
inline PlayResult played(const std::string &text) {
    return play(parseScenario(text, "s.yaml"), PlayOptions());
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
