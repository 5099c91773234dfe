// Where the code of an ARM64 function leads when the driver's log lets lines through and when it does not.
#pragma once

#include "../../simulator/image/pe_file.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

using namespace sim::image;

/// Addresses of an image's functions and variables by their linker names, read from the linker's map.
std::map<std::string, std::uint32_t> readMap(const std::filesystem::path &path, std::uint64_t base);

/// What the log's two variables hold.
enum class LogState {
    enabled,  ///< lines are let through
    disabled, ///< the flag is off
    lowLevel, ///< the flag is on, the level below every line's
};

/// The variables that a log statement asks, and the offset of the level in what the second points to.
struct LogVariables {
    std::uint32_t flag = 0;
    std::uint32_t logger = 0;
    std::uint32_t levelOffset = 0;
};

/// Addresses of the instructions that can run in the function [range) when it begins at its first one. Branches that
/// ask the log's variables go as `state` has it, every other conditional branch goes both ways.
std::set<std::uint32_t> reachable(const PeFile &image, Range range, const LogVariables &log, LogState state);

/// The question of one log line (or of several whose flag is asked once), from the branch that asks the flag to the one
/// that asks the level, both counted.
struct LogGuard {
    std::uint32_t flagBranch = 0;
    std::optional<std::uint32_t> levelBranch; ///< nothing when a call, another question or a return comes first
    std::optional<std::uint32_t> skipsTo;     ///< where a low level branches to; nothing when it goes straight on
    std::size_t instructions = 0;
};
std::vector<LogGuard> logGuards(const PeFile &image, Range range, const LogVariables &log);

/// Whether the instruction can be followed by the one behind it: no jump and no return.
bool runsOn(const PeFile &image, std::uint32_t address);

/// Addresses in the function that call or jump to one of the targets.
std::vector<std::uint32_t> transfersTo(const PeFile &image, Range range, const std::set<std::uint32_t> &targets);
