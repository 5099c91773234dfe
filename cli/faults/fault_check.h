#pragma once

#include "../play/play_result.h"

#include <string>
#include <vector>

namespace cli {

/// What a run with failing platform calls did that it must never do, one line each; empty when it kept to it:
/// - nothing is left behind after the driver was unloaded;
/// - no device comes out more open than in `sound`, the run in which nothing failed, but for the ways that
///   openedAsMeant counts;
/// - a device whose add failed does not run;
/// - after a single failure (`single`), the add that failed by it logs an error with its status, and devices of later
///   steps come out as they do when nothing fails.
std::vector<std::string> faultProblems(const PlayResult &sound, const PlayResult &faulty, bool single);

/// How many devices came out more open in a way that is known and meant:
/// - the policy itself could not be read, so that the device is not filterable;
/// - the callback settings could not be read at the driver's start, so that rules decide in place of the fallback;
/// - its serial number could not be read, which a rule that accepts any serial number does not need;
/// - its enumerator could not be read, so that it counts as no USB device and gets no filter;
/// - the driver could not be loaded or registered with the device's class, so that it was not asked.
std::size_t openedAsMeant(const PlayResult &sound, const PlayResult &faulty);

} // namespace cli
