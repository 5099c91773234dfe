// Memory: copying and pool.
#pragma once

#include <ntdef.h>

#define MEMORY_ALLOCATION_ALIGNMENT 16
#ifndef PAGE_SIZE
#define PAGE_SIZE 0x1000
#endif

typedef ULONG64 POOL_FLAGS;
#define POOL_FLAG_REQUIRED_START 0x0000000000000001ULL
#define POOL_FLAG_USE_QUOTA 0x0000000000000001ULL
#define POOL_FLAG_UNINITIALIZED 0x0000000000000002ULL
#define POOL_FLAG_SESSION 0x0000000000000004ULL
#define POOL_FLAG_CACHE_ALIGNED 0x0000000000000008ULL
#define POOL_FLAG_RESERVED1 0x0000000000000010ULL
#define POOL_FLAG_RAISE_ON_FAILURE 0x0000000000000020ULL
#define POOL_FLAG_NON_PAGED 0x0000000000000040ULL
#define POOL_FLAG_NON_PAGED_EXECUTE 0x0000000000000080ULL
#define POOL_FLAG_PAGED 0x0000000000000100ULL

// On ARM64 "non-paged" always means the non-executable pool.
typedef enum _POOL_TYPE {
    NonPagedPoolExecute = 0,
    PagedPool = 1,
    NonPagedPoolNx = 512,
    NonPagedPool = 512,
} POOL_TYPE;

EXTERN_C_START

#ifdef _WIN32
void *memcpy(void *destination, const void *source, size_t bytes);
void *memmove(void *destination, const void *source, size_t bytes);
void *memset(void *destination, int value, size_t bytes);
int memcmp(const void *first, const void *second, size_t bytes);
#endif

/// Allocates zeroed pool of exactly one kind; null on failure. `bytes` must not be 0, `tag` neither.
/// IRQL <= APC_LEVEL for paged pool, <= DISPATCH_LEVEL otherwise. learn.microsoft.com: ExAllocatePool2.
NTKERNELAPI PVOID ExAllocatePool2(POOL_FLAGS flags, SIZE_T bytes, ULONG tag);

/// Frees pool; `tag` must be the allocation's own (0 frees any). learn.microsoft.com: ExFreePoolWithTag.
NTKERNELAPI VOID ExFreePoolWithTag(PVOID address, ULONG tag);

/// Frees pool of any tag. learn.microsoft.com: ExFreePool.
NTKERNELAPI VOID ExFreePool(PVOID address);

/// Number of leading bytes that are equal. learn.microsoft.com: RtlCompareMemory.
NTSYSAPI SIZE_T RtlCompareMemory(const VOID *first, const VOID *second, SIZE_T bytes);

/// Address of an exported kernel routine, null when the running system lacks it. PASSIVE_LEVEL.
/// learn.microsoft.com: MmGetSystemRoutineAddress.
NTKERNELAPI PVOID MmGetSystemRoutineAddress(PUNICODE_STRING name);

EXTERN_C_END

#define ExFreePool(address) ExFreePoolWithTag(address, 0)

#define RtlCopyMemory(destination, source, bytes) memcpy((destination), (source), (bytes))
#define RtlMoveMemory(destination, source, bytes) memmove((destination), (source), (bytes))
#define RtlFillMemory(destination, bytes, value) memset((destination), (value), (bytes))
#define RtlZeroMemory(destination, bytes) memset((destination), 0, (bytes))
#define RtlEqualMemory(first, second, bytes) (!memcmp((first), (second), (bytes)))
