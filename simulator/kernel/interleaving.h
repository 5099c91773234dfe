#pragma once

#include <atomic>

namespace sim {

/// Makes threads meet in more orders than two processors happen to produce: now and then a driver's call of a system
/// routine lets other threads run before it does anything, in particular before it takes a lock. Off by default.
void setInterleaving(bool on);

/// The place for that, at the begin of a routine.
inline void mayInterleave() {
    extern std::atomic<bool> interleaving;
    void letOthersRun();
    if (interleaving.load(std::memory_order_relaxed)) [[unlikely]] {
        letOthersRun();
    }
}

} // namespace sim
