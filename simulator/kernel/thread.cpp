#include "thread.h"

#include "interleaving.h"
#include "violation.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// Records stay for the life of the process: an IRP may name a thread that has ended.
KernelThread &newThread() {
    static std::mutex mutex;
    static std::vector<std::unique_ptr<KernelThread>> threads;
    std::lock_guard lock(mutex);
    return *threads.emplace_back(std::make_unique<KernelThread>());
}

KernelThread &currentThread() {
    static thread_local KernelThread &thread = newThread();
    return thread;
}

void requireIrqlAtMost(KIRQL highest, const char *routine, const void *callSite) {
    mayInterleave();
    const KIRQL irql = currentThread().irql;
    if (irql > highest) {
        bugCheck("irql", routine,
                 "called at IRQL " + std::to_string(irql) + ", allowed up to " + std::to_string(highest), callSite);
    }
}

void requirePassive(const char *routine, const void *callSite) {
    requireIrqlAtMost(PASSIVE_LEVEL, routine, callSite);
}

CallbackContract::CallbackContract(const char *callback) : callback_(callback), before_(currentThread()) {}

CallbackContract::~CallbackContract() noexcept(false) {
    const KernelThread &now = currentThread();
    const auto compare = [this](const char *what, unsigned before, unsigned after) {
        if (before != after) {
            bugCheck("callback contract", callback_,
                     std::string("returned with ") + what + " " + std::to_string(after) + ", entered with " +
                         std::to_string(before),
                     nullptr);
        }
    };
    compare("IRQL", before_.irql, now.irql);
    compare("locks held", before_.resourcesHeld, now.resourcesHeld);
    compare("critical region depth", before_.criticalRegionDepth, now.criticalRegionDepth);
    compare("process", before_.processId, now.processId);
}

} // namespace sim
