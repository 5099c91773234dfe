#pragma once

#include "../scenario/scenario.h"
#include "play_result.h"

#include <filesystem>

namespace cli {

struct PlayOptions {
    std::filesystem::path driver;    ///< native driver module; empty: the one beside the command
    std::filesystem::path keepFiles; ///< folder that gets the machine's \SystemRoot; empty: nothing is kept
};

/// Plays a scenario on a machine of its own. One at a time in a process.
PlayResult play(const Scenario &scenario, const PlayOptions &options);

} // namespace cli
