#pragma once

#include "operations.h"

namespace bench {

/// What a read-only disk costs, beside the same stack without the filter.
void addDiskOperations(std::vector<Operation> &operations);

} // namespace bench
