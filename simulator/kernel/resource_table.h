#pragma once

#include <ntifs.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

struct KernelThread;

/// Owners and waiters of one executive resource. Everything is guarded by the table's lock.
struct ResourceState {
    struct Waiter {
        KernelThread *thread;
        bool exclusive;
        bool granted = false;
    };
    const void *initialisedAt = nullptr;
    KernelThread *exclusiveOwner = nullptr;
    std::map<KernelThread *, unsigned> holds; ///< acquires not yet released, per thread
    std::deque<Waiter *> waiters;
    std::condition_variable changed;

    bool held() const { return !holds.empty(); }
    unsigned holdsOf(KernelThread *thread) const;
};

/// Every initialised executive resource by address.
class ResourceTable {
  public:
    std::mutex mutex;
    std::map<std::uintptr_t, std::unique_ptr<ResourceState>> resources;

    std::vector<std::string> leaks();
};

/// bugCheck when a live executive resource lies in the memory (which is about to be freed).
void requireNoLiveResource(const void *memory, std::size_t bytes, const char *routine, const void *callSite);

} // namespace sim
