#pragma once

#include "../../simulator/kernel/faults.h"
#include "../../simulator/machine/driver_image.h"
#include "../scenario/scenario.h"
#include "play_result.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace cli {

struct PlayOptions {
    std::filesystem::path driver;         ///< native driver module; empty: the one beside the command
    std::filesystem::path keepFiles;      ///< folder that gets the machine's \SystemRoot; empty: nothing is kept
    bool onlyEvents = false;              ///< leaves out the failures that the scenario plans, and what it expects
    std::optional<sim::FaultPoint> fault; ///< one call of the whole run fails; wants `onlyEvents`
    std::function<std::unique_ptr<sim::DriverImage>()> openImage; ///< instead of mapping `driver`, for each load
};

/// Plays a scenario on a machine of its own. One at a time in a process.
PlayResult play(const Scenario &scenario, const PlayOptions &options);

} // namespace cli
