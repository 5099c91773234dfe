#include "lock_order.h"

#include "violation.h"

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

namespace sim {

namespace {

struct HeldLock {
    LockKind kind;
    const void *lock;
    const void *callSite;
};

/// What a thread knows without asking. It looks at the shared table for pairs that are new to it alone, so that the
/// table's own lock orders as little as possible between threads.
struct ThreadOrder {
    std::uint64_t machine = 0;
    std::uint64_t forgotten = 0;
    std::vector<HeldLock> held;
    std::set<std::pair<const void *, const void *>> known;
};

/// Never destroyed: a machine that is a static object ends after the main thread's own objects have.
ThreadOrder &newThreadOrder() {
    static std::mutex mutex;
    static auto &orders = *new std::vector<std::unique_ptr<ThreadOrder>>;
    std::lock_guard lock(mutex);
    return *orders.emplace_back(std::make_unique<ThreadOrder>());
}

ThreadOrder &threadOrder() {
    static thread_local ThreadOrder &order = newThreadOrder();
    return order;
}

std::uint64_t nextMachine() {
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
}

std::string describeLock(LockKind kind, const void *lock) {
    const char *name = kind == LockKind::executiveResource ? "executive resource "
                       : kind == LockKind::fastMutex       ? "fast mutex "
                                                           : "wait lock ";
    return name + hex(reinterpret_cast<std::uintptr_t>(lock));
}

} // namespace

LockOrder::LockOrder() : machine_(nextMachine()) {}

void LockOrder::acquired(LockKind kind, const void *lock, const void *callSite) {
    ThreadOrder &mine = threadOrder();
    if (mine.machine != machine_) {
        mine = {machine_, forgotten_.load(std::memory_order_relaxed), {}, {}};
    }
    if (const std::uint64_t times = forgotten_.load(std::memory_order_relaxed); mine.forgotten != times) {
        mine.forgotten = times;
        mine.known.clear();
    }
    const bool again =
        std::any_of(mine.held.begin(), mine.held.end(), [&](const auto &held) { return held.lock == lock; });
    const std::vector<HeldLock> before = again ? std::vector<HeldLock>() : mine.held;
    mine.held.push_back({kind, lock, callSite});
    for (const HeldLock &held : before) {
        if (mine.known.insert({held.lock, lock}).second) {
            add({held.lock, lock}, {held.kind, kind, held.callSite, callSite}, callSite);
        }
    }
}

void LockOrder::released(const void *lock) {
    std::vector<HeldLock> &held = threadOrder().held;
    const auto last = std::find_if(held.rbegin(), held.rend(), [&](const HeldLock &one) { return one.lock == lock; });
    if (last != held.rend()) {
        held.erase(std::next(last).base());
    }
}

void LockOrder::add(const Pair &pair, const Sites &sites, const void *callSite) {
    std::unique_lock lock(mutex_);
    if (!taken_.emplace(pair, sites).second) {
        return;
    }
    const std::optional<Pair> before = wayBack(pair);
    if (!before) {
        return;
    }
    const Sites other = taken_.at(*before);
    lock.unlock();
    bugCheck("lock order", "lock acquisition",
             describeLock(sites.secondKind, pair.second) + " is taken by " + describeCodeAddress(sites.second) +
                 " after " + describeLock(sites.firstKind, pair.first) + ", taken by " +
                 describeCodeAddress(sites.first) + "; before, " + describeLock(other.secondKind, before->second) +
                 " was taken by " + describeCodeAddress(other.second) + " after " +
                 describeLock(other.firstKind, before->first) + ", taken by " + describeCodeAddress(other.first),
             callSite);
}

/// The last step of a chain of pairs that leads from the second lock back to the first.
std::optional<LockOrder::Pair> LockOrder::wayBack(const Pair &pair) const {
    std::set<const void *> reached{pair.second};
    std::vector<const void *> open{pair.second};
    while (!open.empty()) {
        const void *lock = open.back();
        open.pop_back();
        for (auto next = taken_.lower_bound({lock, nullptr}); next != taken_.end() && next->first.first == lock;
             ++next) {
            if (next->first.second == pair.first) {
                return next->first;
            }
            if (reached.insert(next->first.second).second) {
                open.push_back(next->first.second);
            }
        }
    }
    return std::nullopt;
}

void LockOrder::forget(const void *memory, std::size_t bytes) {
    const auto first = reinterpret_cast<std::uintptr_t>(memory);
    const auto inside = [&](const void *lock) { return reinterpret_cast<std::uintptr_t>(lock) - first < bytes; };
    std::lock_guard lock(mutex_);
    if (std::erase_if(taken_,
                      [&](const auto &entry) { return inside(entry.first.first) || inside(entry.first.second); })) {
        forgotten_.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace sim
