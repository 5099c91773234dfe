#pragma once

#include "simulator/machine/machine.h"

#include <wdf.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace sim::strictness {

/// A small framework driver, filter on one USB device, that does one thing wrong: in the device add, after the filter
/// was made.
struct Mistake {
    std::string name; ///< part of the test's name
    std::function<void(WDFDEVICE device, PDEVICE_OBJECT physicalDevice)> make;
    std::string rule;    ///< that the run is stopped with; empty: noticed as a leak at unload
    std::string routine; ///< that noticed it, or what the leak's line begins with
    std::string detail;  ///< regular expression that the message, or the leak's line, must match
};

void PrintTo(const Mistake &mistake, std::ostream *out);

/// Loads the driver, plugs the device, unplugs it, unloads the driver. Returns what was left behind.
std::vector<std::string> run(const Mistake &mistake);

/// Fails the test unless the mistake stops the run, or leaks, as it says, naming the code that made it.
void expectCaught(const Mistake &mistake);

/// What a spin lock's holder runs at. (Drivers raise it inline; there is no routine to call.)
void raiseToDispatchLevel();

/// Name of a parameterised test.
std::string nameOf(const testing::TestParamInfo<Mistake> &info);

struct CaughtMistakes : testing::TestWithParam<Mistake> {};

} // namespace sim::strictness
