#pragma once

#include <stdexcept>

namespace cli {

/// A step that can't be done as things stand, e.g. a device below one that is not there.
struct StepFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace cli
