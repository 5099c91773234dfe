// Structured exception handling. Include it last, in the one file that needs it.
//
// On Windows __try and __except are the compiler's. Elsewhere they become C++ exception handling of the one type below,
// which the program that plays the kernel throws; such a file is built with exceptions there. A filter other than the
// constant EXCEPTION_EXECUTE_HANDLER does not compile elsewhere.
#pragma once

#include <ntdef.h>

#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_SEARCH 0
#define EXCEPTION_CONTINUE_EXECUTION (-1)

#ifdef _WIN32

EXTERN_C unsigned long _exception_code(void);
#define GetExceptionCode _exception_code

#else

struct __attribute__((visibility("default"))) PlatformStructuredException {
    NTSTATUS code;
};

template<int filter>
struct PlatformExceptionFilter;
template<>
struct PlatformExceptionFilter<EXCEPTION_EXECUTE_HANDLER> {
    using Caught = PlatformStructuredException;
};

// The C++ library may have claimed these words for itself.
#undef __try
#undef __except
#define __try try
#define __except(filter) catch ([[maybe_unused]] const PlatformExceptionFilter<(filter)>::Caught &platformException)
#define GetExceptionCode() (platformException.code)

#endif
