// Object manager.
#pragma once

#include <ntdef.h>

typedef struct _OBJECT_TYPE *POBJECT_TYPE;
typedef struct _ACCESS_STATE *PACCESS_STATE;

typedef struct _OBJECT_HANDLE_INFORMATION {
    ULONG HandleAttributes;
    ACCESS_MASK GrantedAccess;
} OBJECT_HANDLE_INFORMATION, *POBJECT_HANDLE_INFORMATION;

EXTERN_C_START

NTKERNELAPI LONG_PTR ObfReferenceObject(PVOID object);
NTKERNELAPI LONG_PTR ObfDereferenceObject(PVOID object);
/// IRQL <= APC_LEVEL. learn.microsoft.com: ObOpenObjectByPointer.
NTKERNELAPI NTSTATUS ObOpenObjectByPointer(PVOID object, ULONG attributes, PACCESS_STATE accessState,
                                           ACCESS_MASK desiredAccess, POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                           PHANDLE handle);
/// PASSIVE_LEVEL. learn.microsoft.com: ObReferenceObjectByHandle.
NTKERNELAPI NTSTATUS ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK desiredAccess, POBJECT_TYPE type,
                                               KPROCESSOR_MODE mode, PVOID *object,
                                               POBJECT_HANDLE_INFORMATION information);
NTSYSAPI NTSTATUS ZwClose(HANDLE handle);

// Exported by the kernel, but in no official header: a source that must build with those too repeats both lines.
NTKERNELAPI NTSTATUS ObReferenceObjectByName(PUNICODE_STRING name, ULONG attributes, PACCESS_STATE accessState,
                                             ACCESS_MASK desiredAccess, POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                             PVOID parseContext, PVOID *object);
extern NTKERNELAPI POBJECT_TYPE *IoDriverObjectType;

EXTERN_C_END

#define ObReferenceObject(object) ObfReferenceObject(object)
#define ObDereferenceObject(object) ObfDereferenceObject(object)
