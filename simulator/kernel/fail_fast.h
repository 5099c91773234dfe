#pragma once

namespace sim {

/// A fast fail of the driver: bug check 0x139 with what the code means.
[[noreturn]] void failFast(unsigned code, const void *callSite);

} // namespace sim
