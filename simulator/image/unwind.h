#pragma once

#include "mapped_image.h"

#include <array>
#include <cstdint>

namespace sim::image {

/// The registers that a function gives back as it got them, in the state that one function of the stack sees.
struct Registers {
    std::array<std::uint64_t, 31> x{}; ///< x19 to x28, the frame pointer x29 and the link register x30 count
    std::array<std::uint64_t, 16> d{}; ///< d8 to d15 count
    std::uint64_t sp = 0;
    std::uint64_t pc = 0; ///< the return address of the call that the function has made
};

/// What the image's unwind data say about the function around a call.
struct UnwoundFunction {
    Range range;
    std::uint32_t handler = 0;     ///< its exception handler, relative to the base; 0: none
    std::uint32_t handlerData = 0; ///< what follows the handler
};

/// Takes `registers` from the function that made a call back to that function's caller. Throws BadImage when the image
/// has no usable unwind data for the place. learn.microsoft.com: "ARM64 exception handling"
UnwoundFunction unwindFrame(const MappedImage &image, Registers &registers);

} // namespace sim::image
