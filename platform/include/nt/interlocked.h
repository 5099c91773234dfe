// Interlocked operations, on compiler atomics: full barriers unless the name says Acquire, Release or NoFence.
// learn.microsoft.com: "InterlockedIncrement" and its neighbours. Any IRQL; operands naturally aligned.
#pragma once

#include <ntdef.h>

#define PLATFORM_INTERLOCKED_INTEGER(width, Type, suffix, order)                                                       \
    FORCEINLINE Type InterlockedIncrement##width##suffix(Type volatile *addend) {                                      \
        return __atomic_add_fetch(addend, 1, order);                                                                   \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedDecrement##width##suffix(Type volatile *addend) {                                      \
        return __atomic_sub_fetch(addend, 1, order);                                                                   \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedExchangeAdd##width##suffix(Type volatile *addend, Type value) {                        \
        return __atomic_fetch_add(addend, value, order);                                                               \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedExchange##width##suffix(Type volatile *target, Type value) {                           \
        return __atomic_exchange_n(target, value, order);                                                              \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedOr##width##suffix(Type volatile *target, Type value) {                                 \
        return __atomic_fetch_or(target, value, order);                                                                \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedAnd##width##suffix(Type volatile *target, Type value) {                                \
        return __atomic_fetch_and(target, value, order);                                                               \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedXor##width##suffix(Type volatile *target, Type value) {                                \
        return __atomic_fetch_xor(target, value, order);                                                               \
    }                                                                                                                  \
    FORCEINLINE Type InterlockedAdd##width##suffix(Type volatile *addend, Type value) {                                \
        return __atomic_add_fetch(addend, value, order);                                                               \
    }

#define PLATFORM_INTERLOCKED_COMPARE(width, Type, suffix, order, failureOrder)                                         \
    FORCEINLINE Type InterlockedCompareExchange##width##suffix(Type volatile *target, Type value, Type comparand) {    \
        __atomic_compare_exchange_n(target, &comparand, value, false, order, failureOrder);                            \
        return comparand;                                                                                              \
    }

#define PLATFORM_INTERLOCKED_ORDER(suffix, order, failureOrder)                                                        \
    PLATFORM_INTERLOCKED_INTEGER(, LONG, suffix, order)                                                                \
    PLATFORM_INTERLOCKED_INTEGER(64, LONG64, suffix, order)                                                            \
    PLATFORM_INTERLOCKED_COMPARE(, LONG, suffix, order, failureOrder)                                                  \
    PLATFORM_INTERLOCKED_COMPARE(64, LONG64, suffix, order, failureOrder)                                              \
    PLATFORM_INTERLOCKED_COMPARE(Pointer, PVOID, suffix, order, failureOrder)                                          \
    FORCEINLINE PVOID InterlockedExchangePointer##suffix(PVOID volatile *target, PVOID value) {                        \
        return __atomic_exchange_n(target, value, order);                                                              \
    }

PLATFORM_INTERLOCKED_ORDER(, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)
PLATFORM_INTERLOCKED_ORDER(Acquire, __ATOMIC_ACQUIRE, __ATOMIC_ACQUIRE)
PLATFORM_INTERLOCKED_ORDER(Release, __ATOMIC_RELEASE, __ATOMIC_RELAXED)
PLATFORM_INTERLOCKED_ORDER(NoFence, __ATOMIC_RELAXED, __ATOMIC_RELAXED)

#undef PLATFORM_INTERLOCKED_ORDER
#undef PLATFORM_INTERLOCKED_COMPARE
#undef PLATFORM_INTERLOCKED_INTEGER

// Plain atomic loads and stores: ReadAcquire, ReadNoFence, WriteRelease, WriteNoFence for LONG and, with the type in
// the name, for ULONG, LONG64, UCHAR and pointers.
#define PLATFORM_ATOMIC_ACCESS(name, Type)                                                                             \
    FORCEINLINE Type Read##name##Acquire(Type const volatile *source) {                                                \
        return __atomic_load_n(source, __ATOMIC_ACQUIRE);                                                              \
    }                                                                                                                  \
    FORCEINLINE Type Read##name##NoFence(Type const volatile *source) {                                                \
        return __atomic_load_n(source, __ATOMIC_RELAXED);                                                              \
    }                                                                                                                  \
    FORCEINLINE VOID Write##name##Release(Type volatile *destination, Type value) {                                    \
        __atomic_store_n(destination, value, __ATOMIC_RELEASE);                                                        \
    }                                                                                                                  \
    FORCEINLINE VOID Write##name##NoFence(Type volatile *destination, Type value) {                                    \
        __atomic_store_n(destination, value, __ATOMIC_RELAXED);                                                        \
    }

PLATFORM_ATOMIC_ACCESS(, LONG)
PLATFORM_ATOMIC_ACCESS(ULong, ULONG)
PLATFORM_ATOMIC_ACCESS(UChar, UCHAR)
PLATFORM_ATOMIC_ACCESS(Pointer, PVOID)
#undef PLATFORM_ATOMIC_ACCESS

FORCEINLINE LONG64 ReadAcquire64(LONG64 const volatile *source) {
    return __atomic_load_n(source, __ATOMIC_ACQUIRE);
}
FORCEINLINE LONG64 ReadNoFence64(LONG64 const volatile *source) {
    return __atomic_load_n(source, __ATOMIC_RELAXED);
}
FORCEINLINE VOID WriteRelease64(LONG64 volatile *destination, LONG64 value) {
    __atomic_store_n(destination, value, __ATOMIC_RELEASE);
}
FORCEINLINE VOID WriteNoFence64(LONG64 volatile *destination, LONG64 value) {
    __atomic_store_n(destination, value, __ATOMIC_RELAXED);
}

FORCEINLINE VOID KeMemoryBarrier(VOID) {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}

FORCEINLINE VOID YieldProcessor(VOID) {
#if defined(__aarch64__)
    __asm__ volatile("yield" : : : "memory");
#else
    __asm__ volatile("pause" : : : "memory");
#endif
}
