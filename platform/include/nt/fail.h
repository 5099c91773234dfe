// Immediate, unrecoverable failure.
#pragma once

#include <ntdef.h>

#define FAST_FAIL_STACK_COOKIE_CHECK_FAILURE 2
#define FAST_FAIL_CORRUPT_LIST_ENTRY 3
#define FAST_FAIL_INVALID_ARG 5
#define FAST_FAIL_GS_COOKIE_INIT 6
#define FAST_FAIL_FATAL_APP_EXIT 7
#define FAST_FAIL_RANGE_CHECK_FAILURE 8
#define FAST_FAIL_GUARD_ICALL_CHECK_FAILURE 10

#ifndef _WIN32
// Provided by the program that plays the kernel in a native build. It must not return.
extern "C" [[noreturn]] void platformFailFast(unsigned code);
#endif

/// Stops the system with bug check 0x139 and `code`, from any IRQL, touching nothing else.
/// learn.microsoft.com: "__fastfail".
[[noreturn]] FORCEINLINE VOID RtlFailFast(ULONG code) {
#if defined(_WIN32)
    __fastfail(code);
#else
    platformFailFast(code);
#endif
}
