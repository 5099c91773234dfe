#pragma once

#include "../play/play_result.h"

#include <string>
#include <vector>

namespace cli {

/// What a run with failing platform calls did that it must never do, one line each; empty when it kept to it:
/// - nothing is left behind after the driver was unloaded;
/// - no device comes out more open than in `sound`, the run in which nothing failed. Two ways are known and meant: the
///   policy itself could not be read (the device is not filterable then), and the driver could not be registered with
///   the device's class or not be loaded (no filter was asked);
/// - a device that the driver refused does not run without it.
std::vector<std::string> faultProblems(const PlayResult &sound, const PlayResult &faulty);

/// How many devices came out more open in one of the two meant ways.
std::size_t openedAsMeant(const PlayResult &sound, const PlayResult &faulty);

} // namespace cli
