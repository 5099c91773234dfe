#pragma once

#include <functional>

namespace races {

inline constexpr unsigned threadCount = 8;

/// Runs work(0) … work(count - 1) in threads of their own, which begin together, and waits for all of them. What a
/// thread throws fails the test.
void together(unsigned count, const std::function<void(unsigned)> &work);
inline void together(const std::function<void(unsigned)> &work) {
    together(threadCount, work);
}

} // namespace races
