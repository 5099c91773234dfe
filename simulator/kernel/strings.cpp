// Counted strings: initialisation, copies, comparison, upcasing.

#include "strings.h"

#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using namespace sim;

namespace {

/// The text of a counted string, checked against what a contract demands of it.
std::u16string_view checkedView(PCUNICODE_STRING text, const char *routine, const void *callSite) {
    if (text->Length != 0) {
        if (text->Buffer == nullptr) {
            bugCheck("string", routine, "a string of " + std::to_string(text->Length) + " bytes has no buffer",
                     callSite);
        }
        kernel().pool.checkAccess(text->Buffer, text->Length & ~1u, routine, callSite);
    }
    return view(*text);
}

/// The comparisons are documented for PASSIVE_LEVEL but do work at APC_LEVEL on real systems (recalled).
void requireComparisonIrql(const char *routine, const void *callSite) {
    if (currentThread().irql == APC_LEVEL && !kernel().stopOnComparisonAtApcLevel) {
        std::fprintf(stderr, "warning: %s at APC_LEVEL, called from %s\n", routine,
                     describeCodeAddress(callSite).c_str());
        return;
    }
    requirePassive(routine, callSite);
}

int compareUnits(std::u16string_view first, std::u16string_view second, bool ignoreCase) {
    const std::size_t common = std::min(first.size(), second.size());
    const char16_t *left = first.data();
    const char16_t *right = second.data();
    for (std::size_t index = 0; index < common; ++index) {
        if (left[index] == right[index]) {
            continue; // long rules share long beginnings
        }
        const int a = ignoreCase ? upcase(left[index]) : left[index];
        const int b = ignoreCase ? upcase(right[index]) : right[index];
        if (a != b) {
            return a - b;
        }
    }
    return static_cast<int>(first.size()) - static_cast<int>(second.size());
}

} // namespace

// learn.microsoft.com: RtlInitUnicodeString. Text of more than 0xFFFC bytes is truncated.
extern "C" VOID RtlInitUnicodeString(PUNICODE_STRING destination, PCWSTR source) {
    destination->Buffer = const_cast<PWCH>(source);
    destination->Length = 0;
    destination->MaximumLength = 0;
    if (source != nullptr) {
        std::size_t units = 0;
        while (source[units] != 0) {
            ++units;
        }
        destination->Length = static_cast<USHORT>(std::min<std::size_t>(units * sizeof(WCHAR), 0xFFFC));
        destination->MaximumLength = static_cast<USHORT>(destination->Length + sizeof(WCHAR));
    }
}

// learn.microsoft.com: RtlInitAnsiString
extern "C" VOID RtlInitAnsiString(PANSI_STRING destination, PCSZ source) {
    destination->Buffer = const_cast<PCHAR>(source);
    destination->Length = 0;
    destination->MaximumLength = 0;
    if (source != nullptr) {
        destination->Length = static_cast<USHORT>(std::min<std::size_t>(std::strlen(source), 0xFFFE));
        destination->MaximumLength = static_cast<USHORT>(destination->Length + 1);
    }
}

// learn.microsoft.com: RtlCopyUnicodeString
extern "C" VOID RtlCopyUnicodeString(PUNICODE_STRING destination, PCUNICODE_STRING source) {
    const void *callSite = SIM_CALL_SITE;
    if (source == nullptr) {
        destination->Length = 0;
        return;
    }
    checkedView(source, "RtlCopyUnicodeString", callSite);
    const USHORT bytes = std::min(source->Length, destination->MaximumLength);
    kernel().pool.checkAccess(destination->Buffer, bytes, "RtlCopyUnicodeString", callSite);
    destination->Length = bytes;
    if (bytes != 0) {
        std::memmove(destination->Buffer, source->Buffer, bytes);
    }
    if (bytes + sizeof(WCHAR) <= destination->MaximumLength) {
        destination->Buffer[bytes / sizeof(WCHAR)] = 0;
    }
}

// learn.microsoft.com: RtlFreeUnicodeString
extern "C" VOID RtlFreeUnicodeString(PUNICODE_STRING text) {
    requirePassive("RtlFreeUnicodeString", SIM_CALL_SITE);
    if (text->Buffer != nullptr) {
        const auto block = kernel().pool.blockAt(text->Buffer);
        if (block && !block->ofKernel) {
            bugCheck("pool tag", "RtlFreeUnicodeString", "the buffer was not allocated by an Rtl routine",
                     SIM_CALL_SITE);
        }
        kernel().pool.free(text->Buffer, 0, SIM_CALL_SITE, "RtlFreeUnicodeString");
        *text = {};
    }
}

// learn.microsoft.com: RtlCompareUnicodeString
extern "C" LONG RtlCompareUnicodeString(PCUNICODE_STRING first, PCUNICODE_STRING second, BOOLEAN ignoreCase) {
    constexpr auto routine = "RtlCompareUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requireComparisonIrql(routine, callSite);
    return compareUnits(checkedView(first, routine, callSite), checkedView(second, routine, callSite), ignoreCase);
}

// learn.microsoft.com: RtlEqualUnicodeString
extern "C" BOOLEAN RtlEqualUnicodeString(PCUNICODE_STRING first, PCUNICODE_STRING second, BOOLEAN ignoreCase) {
    constexpr auto routine = "RtlEqualUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requireComparisonIrql(routine, callSite);
    return first->Length == second->Length &&
           compareUnits(checkedView(first, routine, callSite), checkedView(second, routine, callSite), ignoreCase) == 0;
}

// learn.microsoft.com: RtlPrefixUnicodeString
extern "C" BOOLEAN RtlPrefixUnicodeString(PCUNICODE_STRING prefix, PCUNICODE_STRING text, BOOLEAN ignoreCase) {
    constexpr auto routine = "RtlPrefixUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requireComparisonIrql(routine, callSite);
    const std::u16string_view start = checkedView(prefix, routine, callSite);
    const std::u16string_view whole = checkedView(text, routine, callSite);
    return start.size() <= whole.size() && compareUnits(start, whole.substr(0, start.size()), ignoreCase) == 0;
}

// learn.microsoft.com: RtlUpcaseUnicodeChar
extern "C" WCHAR RtlUpcaseUnicodeChar(WCHAR character) {
    requireIrqlAtMost(APC_LEVEL, "RtlUpcaseUnicodeChar", SIM_CALL_SITE);
    return static_cast<WCHAR>(upcase(static_cast<char16_t>(character)));
}

// learn.microsoft.com: RtlUpcaseUnicodeString. The status of a short destination is recalled.
extern "C" NTSTATUS RtlUpcaseUnicodeString(PUNICODE_STRING destination, PCUNICODE_STRING source, BOOLEAN allocate) {
    constexpr auto routine = "RtlUpcaseUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    const std::u16string_view text = checkedView(source, routine, callSite);
    if (allocate) {
        if (kernel().faults.shouldFail(routine)) {
            return kernel().faults.statusFor(routine, STATUS_NO_MEMORY);
        }
        // Even an empty string gets a buffer.
        const std::size_t bytes = std::max<std::size_t>(source->Length, 1);
        destination->Buffer = static_cast<PWCH>(kernel().pool.allocate(bytes, stringTag, true, false, true, callSite));
        destination->MaximumLength = source->Length;
    } else if (destination->MaximumLength < source->Length) {
        return STATUS_BUFFER_OVERFLOW;
    }
    kernel().pool.checkAccess(destination->Buffer, source->Length, routine, callSite);
    const std::u16string capitals = upcase(text); // the two may be one
    std::memcpy(destination->Buffer, capitals.data(), capitals.size() * sizeof(WCHAR));
    destination->Length = source->Length;
    return STATUS_SUCCESS;
}
