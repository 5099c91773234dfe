#pragma once

#include <functional>

namespace sim::framework {

/// Runs the rest of a deletion in a system worker, at PASSIVE_LEVEL.
void deferDeletion(std::function<void()> finish);

} // namespace sim::framework
