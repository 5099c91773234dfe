#pragma once

#include "operations.h"

namespace bench {

/// What the service's channel costs: exchanges, listing, rescan.
void addChannelOperations(std::vector<Operation> &operations);

} // namespace bench
