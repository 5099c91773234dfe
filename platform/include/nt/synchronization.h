// Dispatcher objects, fast mutexes, executive resources, critical regions.
#pragma once

#include <ntdef.h>

#define PASSIVE_LEVEL 0
#define APC_LEVEL 1
#define DISPATCH_LEVEL 2

typedef enum _EVENT_TYPE { NotificationEvent, SynchronizationEvent } EVENT_TYPE;
typedef enum _MODE { KernelMode, UserMode, MaximumMode } MODE;
typedef enum _KWAIT_REASON { Executive = 0, UserRequest = 6 } KWAIT_REASON;

typedef struct _KTHREAD *PKTHREAD, *PRKTHREAD;
typedef struct _ETHREAD *PETHREAD;
typedef struct _EPROCESS *PEPROCESS;

typedef struct _DISPATCHER_HEADER {
    union {
        LONG Lock;
        struct {
            UCHAR Type;
            UCHAR Signalling;
            UCHAR Size;
            UCHAR Reserved1;
        };
    };
    LONG SignalState;
    LIST_ENTRY WaitListHead;
} DISPATCHER_HEADER, *PDISPATCHER_HEADER;

typedef struct _KEVENT {
    DISPATCHER_HEADER Header;
} KEVENT, *PKEVENT, *PRKEVENT;

#define FM_LOCK_BIT 0x1

typedef struct _FAST_MUTEX {
    LONG Count;
    PVOID Owner;
    ULONG Contention;
    KEVENT Event;
    ULONG OldIrql;
} FAST_MUTEX, *PFAST_MUTEX;

typedef struct _OWNER_ENTRY {
    ERESOURCE_THREAD OwnerThread;
    union {
        struct {
            ULONG IoPriorityBoosted : 1;
            ULONG OwnerReferenced : 1;
            ULONG IoQoSPriorityBoosted : 1;
            ULONG OwnerCount : 29;
        };
        ULONG TableSize;
    };
} OWNER_ENTRY, *POWNER_ENTRY;

typedef struct _ERESOURCE {
    LIST_ENTRY SystemResourcesList;
    POWNER_ENTRY OwnerTable;
    SHORT ActiveCount;
    USHORT Flag;
    PVOID SharedWaiters;
    PVOID ExclusiveWaiters;
    OWNER_ENTRY OwnerEntry;
    ULONG ActiveEntries;
    ULONG ContentionCount;
    ULONG NumberOfSharedWaiters;
    ULONG NumberOfExclusiveWaiters;
    PVOID Reserved2;
    union {
        PVOID Address;
        ULONG_PTR CreatorBackTraceIndex;
    };
    KSPIN_LOCK SpinLock;
} ERESOURCE, *PERESOURCE;

EXTERN_C_START

/// Any IRQL. learn.microsoft.com: KeInitializeEvent.
NTKERNELAPI VOID KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN signalled);
/// Returns the previous state. IRQL <= DISPATCH_LEVEL with `wait` FALSE. learn.microsoft.com: KeSetEvent.
NTKERNELAPI LONG KeSetEvent(PRKEVENT event, KPRIORITY increment, BOOLEAN wait);
NTKERNELAPI VOID KeClearEvent(PRKEVENT event);
NTKERNELAPI LONG KeResetEvent(PRKEVENT event);
/// `timeout` in 100 ns: null waits for ever, 0 polls, negative is relative. IRQL <= APC_LEVEL unless polling.
/// learn.microsoft.com: KeWaitForSingleObject.
NTKERNELAPI NTSTATUS KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode, BOOLEAN alertable,
                                           PLARGE_INTEGER timeout);

/// Stop and resume delivery of normal kernel APCs to this thread; calls nest. IRQL <= APC_LEVEL.
NTKERNELAPI VOID KeEnterCriticalRegion(VOID);
NTKERNELAPI VOID KeLeaveCriticalRegion(VOID);

/// Raises to APC_LEVEL; not recursive. learn.microsoft.com: ExAcquireFastMutex.
NTKERNELAPI VOID ExAcquireFastMutex(PFAST_MUTEX mutex);
NTKERNELAPI VOID ExReleaseFastMutex(PFAST_MUTEX mutex);

/// Storage must be non-paged and 8-byte aligned. learn.microsoft.com: ExInitializeResourceLite.
NTKERNELAPI NTSTATUS ExInitializeResourceLite(PERESOURCE resource);
NTKERNELAPI NTSTATUS ExDeleteResourceLite(PERESOURCE resource);
/// Acquire only inside a critical region. learn.microsoft.com: ExAcquireResourceExclusiveLite.
NTKERNELAPI BOOLEAN ExAcquireResourceExclusiveLite(PERESOURCE resource, BOOLEAN wait);
NTKERNELAPI BOOLEAN ExAcquireResourceSharedLite(PERESOURCE resource, BOOLEAN wait);
NTKERNELAPI VOID ExReleaseResourceLite(PERESOURCE resource);

NTKERNELAPI KIRQL KeGetCurrentIrql(VOID);
NTKERNELAPI HANDLE PsGetCurrentProcessId(VOID);

EXTERN_C_END

/// Storage must be non-paged. learn.microsoft.com: ExInitializeFastMutex.
FORCEINLINE VOID ExInitializeFastMutex(PFAST_MUTEX mutex) {
    mutex->Count = FM_LOCK_BIT;
    mutex->Owner = NULL;
    mutex->Contention = 0;
    KeInitializeEvent(&mutex->Event, SynchronizationEvent, FALSE);
}
