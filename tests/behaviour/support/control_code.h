#pragma once

#include "tests/behaviour/support/driver_test.h"

namespace behaviour {

/// What the control device answers a control request with.
struct ControlAnswer {
    NTSTATUS status = 0;
    std::size_t information = 0;
    std::vector<std::uint8_t> output; ///< the whole buffer, as the driver left it

    /// UTF-16 text from an offset to the first NUL, at most `bytes` long.
    std::u16string text(std::size_t offset, std::size_t bytes) const;
    std::uint32_t number(std::size_t offset) const;
};

/// Sends a control code to the driver's control device, from the kernel, and waits for the answer.
ControlAnswer sendControlCode(sim::DeviceNode &controlNode, std::uint32_t code, std::size_t outputBytes = 0,
                              std::vector<std::uint8_t> input = {});

} // namespace behaviour
