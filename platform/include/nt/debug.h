// Kernel debugger output and bug checks.
#pragma once

#include <ntdef.h>

#define DPFLTR_IHVDRIVER_ID 77
#define DPFLTR_ERROR_LEVEL 0
#define DPFLTR_WARNING_LEVEL 1
#define DPFLTR_TRACE_LEVEL 2
#define DPFLTR_INFO_LEVEL 3

EXTERN_C_START

ULONG DbgPrint(PCSTR format, ...);
NTSYSAPI ULONG DbgPrintEx(ULONG componentId, ULONG level, PCSTR format, ...);
DECLSPEC_NORETURN NTKERNELAPI VOID KeBugCheckEx(ULONG code, ULONG_PTR parameter1, ULONG_PTR parameter2,
                                                ULONG_PTR parameter3, ULONG_PTR parameter4);

EXTERN_C_END
