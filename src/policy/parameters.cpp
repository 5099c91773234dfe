#include "policy/parameters.h"

#include "support/text.h"

// Official headers turn this name into an inline that makes the same choice as below; the exported routine is wanted.
#ifdef RtlQueryRegistryValues
#undef RtlQueryRegistryValues
#endif

namespace {

using QueryValues = NTSTATUS(NTAPI *)(ULONG, PCWSTR, PRTL_QUERY_REGISTRY_TABLE, PVOID, PVOID);

NTSTATUS NTAPI storeDword(PWSTR, ULONG type, PVOID data, ULONG length, PVOID, PVOID target) {
    if (type != REG_DWORD || length != sizeof(ULONG) || target == nullptr) {
        return STATUS_INVALID_PARAMETER;
    }
    RtlCopyMemory(target, data, sizeof(ULONG));
    return STATUS_SUCCESS;
}

/// The routine that guards against untrusted data where the system has it, else its predecessor.
QueryValues queryValuesRoutine() {
    UNICODE_STRING name = literal(L"RtlQueryRegistryValuesEx");
    PVOID routine = MmGetSystemRoutineAddress(&name);
    return routine != nullptr ? reinterpret_cast<QueryValues>(routine) : &RtlQueryRegistryValues;
}

} // namespace

NTSTATUS queryDwordValue(const WCHAR *absoluteKeyPath, const WCHAR *valueName, ULONG &target) {
    RTL_QUERY_REGISTRY_TABLE table[2]{};
    table[0].QueryRoutine = storeDword;
    table[0].Flags = RTL_QUERY_REGISTRY_REQUIRED;
    table[0].Name = const_cast<PWSTR>(valueName);
    table[0].EntryContext = &target;
    table[0].DefaultType = REG_NONE;
    return queryValuesRoutine()(RTL_REGISTRY_ABSOLUTE, absoluteKeyPath, table, nullptr, nullptr);
}
