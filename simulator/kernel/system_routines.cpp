// Routines found by name, memory comparison, debugger output, bug checks.

#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

using namespace sim;

namespace {

/// Debugger output is shown when the environment asks for it: nobody listens on most machines.
ULONG debugPrint(const char *format, va_list arguments) {
    static const bool shown = std::getenv("MYRTELHAVEN_DEBUGGER") != nullptr;
    if (shown) {
        std::vfprintf(stderr, format, arguments);
    }
    return 0;
}

} // namespace

// learn.microsoft.com: MmGetSystemRoutineAddress
extern "C" PVOID MmGetSystemRoutineAddress(PUNICODE_STRING name) {
    requirePassive("MmGetSystemRoutineAddress", SIM_CALL_SITE);
    const std::u16string text(view(*name));
    if (const auto found = kernel().systemRoutines.find(text); found != kernel().systemRoutines.end()) {
        return found->second;
    }
    return dlsym(RTLD_DEFAULT, toUtf8(text).c_str());
}

// learn.microsoft.com: RtlCompareMemory
extern "C" SIZE_T RtlCompareMemory(const VOID *first, const VOID *second, SIZE_T bytes) {
    const auto *a = static_cast<const UCHAR *>(first);
    const auto *b = static_cast<const UCHAR *>(second);
    SIZE_T equal = 0;
    while (equal < bytes && a[equal] == b[equal]) {
        ++equal;
    }
    return equal;
}

// learn.microsoft.com: DbgPrint
extern "C" ULONG DbgPrint(PCSTR format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ULONG status = debugPrint(format, arguments);
    va_end(arguments);
    return status;
}

// learn.microsoft.com: DbgPrintEx
extern "C" ULONG DbgPrintEx(ULONG, ULONG, PCSTR format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ULONG status = debugPrint(format, arguments);
    va_end(arguments);
    return status;
}

// learn.microsoft.com: KeBugCheckEx
extern "C" VOID KeBugCheckEx(ULONG code, ULONG_PTR parameter1, ULONG_PTR parameter2, ULONG_PTR parameter3,
                             ULONG_PTR parameter4) {
    bugCheck("bug check", "KeBugCheckEx",
             hex(code) + " (" + hex(parameter1) + ", " + hex(parameter2) + ", " + hex(parameter3) + ", " +
                 hex(parameter4) + ")",
             SIM_CALL_SITE);
}
