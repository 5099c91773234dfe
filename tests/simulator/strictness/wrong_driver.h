#pragma once

#include "simulator/machine/machine.h"

#include <wdf.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace sim::strictness {

/// What the wrong driver is a filter of: a USB device that is plugged and unplugged, or a flash drive whose disk a
/// program reads, writes and asks whether it is writable in between.
enum class Victim { usbDevice, disk };

/// A small framework driver, filter on its victim, that does one thing wrong: in the device add, after the filter was
/// made, or in a queue that it makes there.
struct Mistake {
    std::string name; ///< part of the test's name
    std::function<void(WDFDEVICE device, PDEVICE_OBJECT physicalDevice)> make;
    std::string rule;    ///< that the run is stopped with; empty: noticed as a leak at unload
    std::string routine; ///< that noticed it, or what the leak's line begins with
    std::string detail;  ///< regular expression that the message, or the leak's line, must match
    Victim victim = Victim::usbDevice;
};

void PrintTo(const Mistake &mistake, std::ostream *out);

/// Loads the driver, plugs the victim, uses and unplugs it, unloads the driver. Returns what was left behind.
std::vector<std::string> run(const Mistake &mistake);

/// Fails the test unless the mistake stops the run, or leaks, as it says, naming the code that made it.
void expectCaught(const Mistake &mistake);

/// What a spin lock's holder runs at. (Drivers raise it inline; there is no routine to call.)
void raiseToDispatchLevel();

/// Name of a parameterised test.
std::string nameOf(const testing::TestParamInfo<Mistake> &info);

struct CaughtMistakes : testing::TestWithParam<Mistake> {};

} // namespace sim::strictness
