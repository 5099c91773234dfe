#pragma once

#include <ntifs.h>

namespace sim {

/// What the kernel knows of one thread. Every host thread that enters a simulated routine has one (thread-local).
struct KernelThread {
    KIRQL irql = PASSIVE_LEVEL;
    unsigned criticalRegionDepth = 0;    ///< KeEnterCriticalRegion calls not yet left
    unsigned processId = 4;              ///< process the thread is attached to; 4 is the system process
    unsigned resourcesHeld = 0;          ///< executive resources, fast mutexes and wait locks held
    unsigned executiveResourcesHeld = 0; ///< the executive resources among them
};

/// The calling thread's record. Its address identifies the thread and stays valid after the thread has ended.
KernelThread &currentThread();

/// A record for a thread that no host thread stands for, such as one of a user-mode process.
KernelThread &newThread();

/// bugCheck("irql", …) when the current IRQL is above `highest`.
void requireIrqlAtMost(KIRQL highest, const char *routine, const void *callSite);

/// bugCheck("irql", …) unless the thread is at PASSIVE_LEVEL with special kernel APCs enabled.
void requirePassive(const char *routine, const void *callSite);

/// bugCheck when the thread leaves a callback with an IRQL, critical region or lock it did not have on entry.
/// Construct before calling into a driver, destroy (or call check) after.
class CallbackContract {
  public:
    explicit CallbackContract(const char *callback);
    ~CallbackContract() noexcept(false); ///< a test's bug check handler may throw
    CallbackContract(const CallbackContract &) = delete;
    CallbackContract &operator=(const CallbackContract &) = delete;

  private:
    const char *callback_;
    KernelThread before_;
};

} // namespace sim
