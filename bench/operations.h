#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Something whose cost is told. `make` builds what it needs and returns the operation.
struct Operation {
    std::string name;
    std::function<std::function<void()>()> make;
    std::uint64_t counted = 1; ///< how often it is run to count instructions; 0: threads take turns, only time is told
    std::uint64_t units = 1;   ///< things done in one run, e.g. lines; what is told is the cost of one
    std::string function;      ///< where the instructions are counted; empty: in the operation itself
    bool lasting = false;      ///< takes many seconds: timed once
};

const std::vector<Operation> &operations();

/// Runs one operation; instructions are counted from here on.
void runOperation(const std::function<void()> &operation);

} // namespace bench
