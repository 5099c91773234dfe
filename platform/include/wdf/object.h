// Framework objects: attributes, typed contexts, life time.
// learn.microsoft.com: "Introduction to Framework Objects"; one page per routine and macro.
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/functions.h>

typedef VOID NTAPI EVT_WDF_OBJECT_CONTEXT_CLEANUP(WDFOBJECT Object);
typedef EVT_WDF_OBJECT_CONTEXT_CLEANUP *PFN_WDF_OBJECT_CONTEXT_CLEANUP;
typedef VOID NTAPI EVT_WDF_OBJECT_CONTEXT_DESTROY(WDFOBJECT Object);
typedef EVT_WDF_OBJECT_CONTEXT_DESTROY *PFN_WDF_OBJECT_CONTEXT_DESTROY;

typedef enum _WDF_EXECUTION_LEVEL {
    WdfExecutionLevelInvalid,
    WdfExecutionLevelInheritFromParent,
    WdfExecutionLevelPassive,
    WdfExecutionLevelDispatch
} WDF_EXECUTION_LEVEL;

typedef enum _WDF_SYNCHRONIZATION_SCOPE {
    WdfSynchronizationScopeInvalid,
    WdfSynchronizationScopeInheritFromParent,
    WdfSynchronizationScopeDevice,
    WdfSynchronizationScopeQueue,
    WdfSynchronizationScopeNone
} WDF_SYNCHRONIZATION_SCOPE;

// A context type is known by the address of its one record, UniqueType.
typedef struct _WDF_OBJECT_CONTEXT_TYPE_INFO {
    ULONG Size;
    PCHAR ContextName;
    size_t ContextSize;
    const struct _WDF_OBJECT_CONTEXT_TYPE_INFO *UniqueType;
    const struct _WDF_OBJECT_CONTEXT_TYPE_INFO *(NTAPI *EvtDriverGetUniqueContextType)(VOID);
} WDF_OBJECT_CONTEXT_TYPE_INFO, *PWDF_OBJECT_CONTEXT_TYPE_INFO;
typedef const WDF_OBJECT_CONTEXT_TYPE_INFO *PCWDF_OBJECT_CONTEXT_TYPE_INFO;

typedef struct _WDF_OBJECT_ATTRIBUTES {
    ULONG Size;
    PFN_WDF_OBJECT_CONTEXT_CLEANUP EvtCleanupCallback;
    PFN_WDF_OBJECT_CONTEXT_DESTROY EvtDestroyCallback;
    WDF_EXECUTION_LEVEL ExecutionLevel;
    WDF_SYNCHRONIZATION_SCOPE SynchronizationScope;
    WDFOBJECT ParentObject;
    size_t ContextSizeOverride;
    PCWDF_OBJECT_CONTEXT_TYPE_INFO ContextTypeInfo;
} WDF_OBJECT_ATTRIBUTES, *PWDF_OBJECT_ATTRIBUTES;

constexpr FORCEINLINE VOID WDF_OBJECT_ATTRIBUTES_INIT(PWDF_OBJECT_ATTRIBUTES Attributes) {
    *Attributes = {};
    Attributes->Size = sizeof(WDF_OBJECT_ATTRIBUTES);
    Attributes->ExecutionLevel = WdfExecutionLevelInheritFromParent;
    Attributes->SynchronizationScope = WdfSynchronizationScopeInheritFromParent;
}

#define WDF_TYPE_NAME_TO_TYPE_INFO(contextType) WDF_##contextType##_TYPE_INFO
#define WDF_GET_CONTEXT_TYPE_INFO(contextType) (&WDF_TYPE_NAME_TO_TYPE_INFO(contextType))

#define WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(attributes, contextType)                                                \
    (attributes)->ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(contextType)->UniqueType

#define WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(attributes, contextType)                                               \
    do {                                                                                                               \
        WDF_OBJECT_ATTRIBUTES_INIT(attributes);                                                                        \
        WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(attributes, contextType);                                               \
    } while (0)

// Defines the type's record, the same one in every file of an image, and the function that fetches such a context.
#define WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(contextType, fetchFunction)                                                 \
    inline const WDF_OBJECT_CONTEXT_TYPE_INFO WDF_TYPE_NAME_TO_TYPE_INFO(contextType) = {                              \
        sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), const_cast<PCHAR>(#contextType), sizeof(contextType),                    \
        WDF_GET_CONTEXT_TYPE_INFO(contextType), NULL};                                                                 \
    [[maybe_unused]] FORCEINLINE contextType *fetchFunction(WDFOBJECT Handle) {                                        \
        return static_cast<contextType *>(                                                                             \
            WdfObjectGetTypedContextWorker(Handle, WDF_GET_CONTEXT_TYPE_INFO(contextType)->UniqueType));               \
    }

#define WDF_DECLARE_CONTEXT_TYPE(contextType)                                                                          \
    WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(contextType, WdfObjectGet_##contextType)

#define WdfObjectGetTypedContext(handle, contextType)                                                                  \
    ((contextType *)WdfObjectGetTypedContextWorker((WDFOBJECT)(handle),                                                \
                                                   WDF_GET_CONTEXT_TYPE_INFO(contextType)->UniqueType))

typedef PVOID(NTAPI *PFN_WDFOBJECTGETTYPEDCONTEXTWORKER)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFOBJECT Handle,
                                                         PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo);
/// Null when the object has no context of that type. Any IRQL.
FORCEINLINE PVOID WdfObjectGetTypedContextWorker(WDFOBJECT Handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo) {
    return wdfFunction<PFN_WDFOBJECTGETTYPEDCONTEXTWORKER>(WdfObjectGetTypedContextWorkerTableIndex)(WdfDriverGlobals,
                                                                                                     Handle, TypeInfo);
}

typedef NTSTATUS(NTAPI *PFN_WDFOBJECTALLOCATECONTEXT)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFOBJECT Handle,
                                                      PWDF_OBJECT_ATTRIBUTES ContextAttributes, PVOID *Context);
/// STATUS_OBJECT_NAME_EXISTS, a success, when the type is there already. IRQL <= DISPATCH_LEVEL.
FORCEINLINE NTSTATUS WdfObjectAllocateContext(WDFOBJECT Handle, PWDF_OBJECT_ATTRIBUTES ContextAttributes,
                                              PVOID *Context) {
    return wdfFunction<PFN_WDFOBJECTALLOCATECONTEXT>(WdfObjectAllocateContextTableIndex)(WdfDriverGlobals, Handle,
                                                                                         ContextAttributes, Context);
}

typedef WDFOBJECT(NTAPI *PFN_WDFOBJECTCONTEXTGETOBJECT)(PWDF_DRIVER_GLOBALS DriverGlobals, PVOID ContextPointer);
FORCEINLINE WDFOBJECT WdfObjectContextGetObject(PVOID ContextPointer) {
    return wdfFunction<PFN_WDFOBJECTCONTEXTGETOBJECT>(WdfObjectContextGetObjectTableIndex)(WdfDriverGlobals,
                                                                                           ContextPointer);
}

typedef VOID(NTAPI *PFN_WDFOBJECTDELETE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFOBJECT Object);
/// IRQL <= DISPATCH_LEVEL.
FORCEINLINE VOID WdfObjectDelete(WDFOBJECT Object) {
    wdfFunction<PFN_WDFOBJECTDELETE>(WdfObjectDeleteTableIndex)(WdfDriverGlobals, Object);
}

typedef VOID(NTAPI *PFN_WDFOBJECTREFERENCEACTUAL)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFOBJECT Handle, PVOID Tag,
                                                  LONG Line, PCHAR File);
FORCEINLINE VOID WdfObjectReferenceActual(WDFOBJECT Handle, PVOID Tag, LONG Line, PCHAR File) {
    wdfFunction<PFN_WDFOBJECTREFERENCEACTUAL>(WdfObjectReferenceActualTableIndex)(WdfDriverGlobals, Handle, Tag, Line,
                                                                                  File);
}

typedef VOID(NTAPI *PFN_WDFOBJECTDEREFERENCEACTUAL)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFOBJECT Handle, PVOID Tag,
                                                    LONG Line, PCHAR File);
FORCEINLINE VOID WdfObjectDereferenceActual(WDFOBJECT Handle, PVOID Tag, LONG Line, PCHAR File) {
    wdfFunction<PFN_WDFOBJECTDEREFERENCEACTUAL>(WdfObjectDereferenceActualTableIndex)(WdfDriverGlobals, Handle, Tag,
                                                                                      Line, File);
}

#define WdfObjectReference(handle) WdfObjectReferenceActual(handle, NULL, __LINE__, (PCHAR)__FILE__)
#define WdfObjectReferenceWithTag(handle, tag) WdfObjectReferenceActual(handle, tag, __LINE__, (PCHAR)__FILE__)
#define WdfObjectDereference(handle) WdfObjectDereferenceActual(handle, NULL, __LINE__, (PCHAR)__FILE__)
#define WdfObjectDereferenceWithTag(handle, tag) WdfObjectDereferenceActual(handle, tag, __LINE__, (PCHAR)__FILE__)
