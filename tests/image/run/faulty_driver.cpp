// A driver that makes, when it starts or is unloaded, the mistake whose number its key's value "Mistake" holds. The
// test finds the line of each by the comment behind it.

#include "mistakes.h"

#include <excpt.h>
#include <ntifs.h>
#include <wdf.h>

extern "C" DRIVER_INITIALIZE DriverEntry;

namespace {

const volatile ULONG constants[4] = {1, 2, 3, 4};
ULONG mistake;
PDRIVER_INITIALIZE volatile entry = DriverEntry;

__attribute__((noinline)) void readNear(volatile ULONG *pointer) {
    mistake = *pointer; // line of nearNull
}

__attribute__((noinline)) void writeConstant(ULONG index) {
    const_cast<volatile ULONG &>(constants[index]) = 9; // line of constant
}

__attribute__((section("INIT"), noinline)) void startOnly() {
    mistake = 0;
}
void (*volatile discarded)() = startOnly;

__attribute__((noinline)) void fillPast(volatile UCHAR *bytes, ULONG count) {
    for (ULONG i = 0; i < count; ++i) {
        bytes[i] = 0x41;
    }
}

__attribute__((noinline)) ULONG overrunStack(ULONG count) {
    volatile UCHAR room[16];
    fillPast(room, count);
    return room[3];
} // line of stackOverrun

__attribute__((noinline)) void callPastTable(ULONG index) {
    using Routine = void (*)(PWDF_DRIVER_GLOBALS);
    reinterpret_cast<Routine>(WdfFunctions[index])(nullptr); // line of pastTable
}

[[noreturn]] __attribute__((noinline)) void reachTheUnreachable() {
    __builtin_trap(); // line of unreachable
}

__attribute__((noinline)) void callInto(PUCHAR function) {
    reinterpret_cast<void (*)()>(function + 4)(); // line of callTarget
}

__attribute__((noinline)) void touchInKernel(PCWSTR text) {
    UNICODE_STRING string;
    RtlInitUnicodeString(&string, text); // line of kernelPointer
    mistake = string.Length;
}

__attribute__((noinline)) BOOLEAN matchEverything() {
    WCHAR text[] = L"TEXT";
    UNICODE_STRING string{8, 8, text};
    return FsRtlIsNameInExpression(&string, &string, TRUE, nullptr); // line of unhandled
}

/// Whether what a caller keeps in registers across a call is there again when the call raised.
__attribute__((noinline)) NTSTATUS keepAcrossException(ULONG64 seed) {
    const ULONG64 a = seed * 3;
    const ULONG64 b = seed * 5 + 1;
    const ULONG64 c = seed * 7 + 2;
    const double d = static_cast<double>(seed) * 1.5;
    BOOLEAN matched = FALSE;
    NTSTATUS status = STATUS_SUCCESS;
    __try {
        matched = matchEverything();
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        status = static_cast<NTSTATUS>(GetExceptionCode());
    }
    const bool kept = a == seed * 3 && b == seed * 5 + 1 && c == seed * 7 + 2 && d == static_cast<double>(seed) * 1.5;
    return !matched && kept ? status : STATUS_UNSUCCESSFUL;
}

/// The handler of this function is not asked for what happens before its block.
__attribute__((noinline)) NTSTATUS raiseOutsideOfBlock() {
    matchEverything();
    __try {
        matchEverything();
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return STATUS_SUCCESS;
    }
    return STATUS_UNSUCCESSFUL;
}

VOID unload(PDRIVER_OBJECT) {
    if (mistake == static_cast<ULONG>(Mistake::discarded)) {
        discarded(); // line of discarded
    }
}

NTSTATUS keepNumber(PWSTR, ULONG type, PVOID data, ULONG bytes, PVOID, PVOID number) {
    if (type == REG_DWORD && bytes == sizeof(ULONG)) {
        *static_cast<PULONG>(number) = *static_cast<PULONG>(data);
    }
    return STATUS_SUCCESS;
}

ULONG numberOf(PUNICODE_STRING registryPath) {
    ULONG number = 0;
    RTL_QUERY_REGISTRY_TABLE table[2] = {};
    table[0].QueryRoutine = keepNumber;
    table[0].Name = const_cast<PWSTR>(L"Mistake");
    table[0].EntryContext = &number;
    (void)RtlQueryRegistryValues(RTL_REGISTRY_ABSOLUTE, registryPath->Buffer, table, nullptr, nullptr);
    return number;
}

} // namespace

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    mistake = numberOf(registryPath);
    driver->DriverUnload = unload;
    switch (static_cast<Mistake>(mistake)) {
    case Mistake::none:
    case Mistake::discarded:
        break;
    case Mistake::nearNull:
        readNear(reinterpret_cast<volatile ULONG *>(8));
        break;
    case Mistake::constant:
        writeConstant(mistake % 4);
        break;
    case Mistake::stackOverrun:
        return static_cast<NTSTATUS>(overrunStack(48));
    case Mistake::fastFail:
        RtlFailFast(FAST_FAIL_CORRUPT_LIST_ENTRY); // line of fastFail
    case Mistake::unreachable:
        reachTheUnreachable();
    case Mistake::pastTable:
        callPastTable(444 + mistake);
        break;
    case Mistake::callTarget:
        callInto(reinterpret_cast<PUCHAR>(entry));
        break;
    case Mistake::kernelPointer:
        touchInKernel(reinterpret_cast<PCWSTR>(16));
        break;
    case Mistake::unhandled:
        matchEverything();
        break;
    case Mistake::handled:
        return keepAcrossException(reinterpret_cast<ULONG64>(driver));
    case Mistake::outsideOfBlock:
        return raiseOutsideOfBlock();
    }
    return STATUS_SUCCESS;
}
