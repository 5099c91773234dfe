// The running thread: its IRQL and its process.

#include "thread.h"

#include <cstdint>

// learn.microsoft.com: KeGetCurrentIrql
extern "C" KIRQL KeGetCurrentIrql() {
    return sim::currentThread().irql;
}

// learn.microsoft.com: PsGetCurrentProcessId
extern "C" HANDLE PsGetCurrentProcessId() {
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(sim::currentThread().processId));
}
