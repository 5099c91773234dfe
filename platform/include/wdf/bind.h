// Binding an image to the framework at load: the two routines of the framework loader and their record.
#pragma once

#include <wdf/functions.h>

typedef struct _WDF_VERSION {
    ULONG Major;
    ULONG Minor;
    ULONG Build;
} WDF_VERSION;

// Must stay writable and valid until unbinding.
typedef struct _WDF_BIND_INFO {
    ULONG Size;
    PWCHAR Component;
    WDF_VERSION Version;
    ULONG FuncCount;
    // From 444 entries on: the address of a pointer variable that receives the address of the framework's table.
    const WDFFUNC **FuncTable;
    PVOID Module;
} WDF_BIND_INFO, *PWDF_BIND_INFO;

typedef PWDF_DRIVER_GLOBALS PWDF_COMPONENT_GLOBALS;

EXTERN_C_START

/// Finds the framework, references it, and fills the function-table pointer and `*globals`. PASSIVE_LEVEL.
NTSYSAPI NTSTATUS WdfVersionBind(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath, PWDF_BIND_INFO bindInfo,
                                 PWDF_COMPONENT_GLOBALS *globals);
/// Undoes a bind, with the same three values. Objects that remain are deleted first. PASSIVE_LEVEL.
NTSYSAPI NTSTATUS WdfVersionUnbind(PUNICODE_STRING registryPath, PWDF_BIND_INFO bindInfo,
                                   PWDF_COMPONENT_GLOBALS globals);

EXTERN_C_END
