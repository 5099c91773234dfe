#pragma once

#include "lock_accounting.h"

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace sim {

/// The order in which a driver takes its locks. Two threads that take the same locks in opposite orders deadlock one
/// day; here it is noticed as soon as both orders have been seen, whether or not the threads met. Holds count alike,
/// shared or exclusive, because an exclusive request that waits holds up the shared ones behind it.
class LockOrder {
  public:
    LockOrder();

    /// The calling thread holds `lock` from now on. Stops the run when the locks that it already holds have been taken
    /// after this one before.
    void acquired(LockKind kind, const void *lock, const void *callSite);
    void released(const void *lock);
    /// Locks in this memory are gone; others may come to lie there.
    void forget(const void *memory, std::size_t bytes);

  private:
    struct Sites {
        LockKind firstKind;
        LockKind secondKind;
        const void *first; ///< where the lock that was taken first was taken
        const void *second;
    };
    using Pair = std::pair<const void *, const void *>;

    void add(const Pair &pair, const Sites &sites, const void *callSite);
    std::optional<Pair> wayBack(const Pair &pair) const;

    const std::uint64_t machine_;              ///< tells what a thread remembers of an earlier machine
    std::atomic<std::uint64_t> forgotten_ = 0; ///< times that locks were forgotten
    std::mutex mutex_;
    std::map<Pair, Sites> taken_; ///< locks that were taken while another was held: that one first
};

} // namespace sim
