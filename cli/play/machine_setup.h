#pragma once

#include "../../simulator/machine/machine.h"
#include "../scenario/scenario.h"
#include "player.h"

namespace cli {

sim::MachineOptions machineOptions(const Scenario &scenario, const PlayOptions &options);

/// Brings a new machine into the state in which the scenario begins.
void setUp(sim::Machine &machine, const Scenario &scenario);

void applyRegistry(sim::Machine &machine, const RegistryChanges &changes);
void applyFiles(sim::Machine &machine, const std::vector<TempFile> &files);

} // namespace cli
