// Memory objects and buffer descriptions. learn.microsoft.com: "wdfmemory.h header".
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/object.h>

typedef struct _WDFMEMORY_OFFSET {
    size_t BufferOffset;
    size_t BufferLength;
} WDFMEMORY_OFFSET, *PWDFMEMORY_OFFSET;

typedef enum _WDF_MEMORY_DESCRIPTOR_TYPE {
    WdfMemoryDescriptorTypeInvalid,
    WdfMemoryDescriptorTypeBuffer,
    WdfMemoryDescriptorTypeMdl,
    WdfMemoryDescriptorTypeHandle
} WDF_MEMORY_DESCRIPTOR_TYPE;

typedef struct _WDF_MEMORY_DESCRIPTOR {
    WDF_MEMORY_DESCRIPTOR_TYPE Type;
    union {
        struct {
            PVOID Buffer;
            ULONG Length;
        } BufferType;
        struct {
            PMDL Mdl;
            ULONG BufferLength;
        } MdlType;
        struct {
            WDFMEMORY Memory;
            PWDFMEMORY_OFFSET Offsets;
        } HandleType;
    } u;
} WDF_MEMORY_DESCRIPTOR, *PWDF_MEMORY_DESCRIPTOR;

constexpr FORCEINLINE VOID WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(PWDF_MEMORY_DESCRIPTOR Descriptor, PVOID Buffer,
                                                             ULONG BufferLength) {
    *Descriptor = {};
    Descriptor->Type = WdfMemoryDescriptorTypeBuffer;
    Descriptor->u.BufferType.Buffer = Buffer;
    Descriptor->u.BufferType.Length = BufferLength;
}

constexpr FORCEINLINE VOID WDF_MEMORY_DESCRIPTOR_INIT_HANDLE(PWDF_MEMORY_DESCRIPTOR Descriptor, WDFMEMORY Memory,
                                                             PWDFMEMORY_OFFSET Offsets) {
    *Descriptor = {};
    Descriptor->Type = WdfMemoryDescriptorTypeHandle;
    Descriptor->u.HandleType.Memory = Memory;
    Descriptor->u.HandleType.Offsets = Offsets;
}

typedef NTSTATUS(NTAPI *PFN_WDFMEMORYCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDF_OBJECT_ATTRIBUTES Attributes,
                                             POOL_TYPE PoolType, ULONG PoolTag, size_t BufferSize, WDFMEMORY *Memory,
                                             PVOID *Buffer);
/// The content is undefined. IRQL <= DISPATCH_LEVEL for non-paged pool.
FORCEINLINE NTSTATUS WdfMemoryCreate(PWDF_OBJECT_ATTRIBUTES Attributes, POOL_TYPE PoolType, ULONG PoolTag,
                                     size_t BufferSize, WDFMEMORY *Memory, PVOID *Buffer) {
    return wdfFunction<PFN_WDFMEMORYCREATE>(WdfMemoryCreateTableIndex)(WdfDriverGlobals, Attributes, PoolType, PoolTag,
                                                                       BufferSize, Memory, Buffer);
}

typedef NTSTATUS(NTAPI *PFN_WDFMEMORYCREATEPREALLOCATED)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                         PWDF_OBJECT_ATTRIBUTES Attributes, PVOID Buffer,
                                                         size_t BufferSize, WDFMEMORY *Memory);
FORCEINLINE NTSTATUS WdfMemoryCreatePreallocated(PWDF_OBJECT_ATTRIBUTES Attributes, PVOID Buffer, size_t BufferSize,
                                                 WDFMEMORY *Memory) {
    return wdfFunction<PFN_WDFMEMORYCREATEPREALLOCATED>(WdfMemoryCreatePreallocatedTableIndex)(
        WdfDriverGlobals, Attributes, Buffer, BufferSize, Memory);
}

typedef PVOID(NTAPI *PFN_WDFMEMORYGETBUFFER)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFMEMORY Memory, size_t *BufferSize);
FORCEINLINE PVOID WdfMemoryGetBuffer(WDFMEMORY Memory, size_t *BufferSize) {
    return wdfFunction<PFN_WDFMEMORYGETBUFFER>(WdfMemoryGetBufferTableIndex)(WdfDriverGlobals, Memory, BufferSize);
}
