// Where the code of an ARM64 function leads when the driver's log lets lines through and when it does not.
#pragma once

#include "pe_reader.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

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
std::set<std::uint32_t> reachable(const PeImage &image, Range range, const LogVariables &log, LogState state);

/// Addresses in the function that call or jump to one of the targets.
std::vector<std::uint32_t> transfersTo(const PeImage &image, Range range, const std::set<std::uint32_t> &targets);
