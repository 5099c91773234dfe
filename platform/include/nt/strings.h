// Counted strings. Lengths are bytes. learn.microsoft.com has one page per routine, under its name.
#pragma once

#include <ntdef.h>

EXTERN_C_START

NTSYSAPI VOID RtlInitUnicodeString(PUNICODE_STRING destination, PCWSTR source);
NTSYSAPI VOID RtlInitAnsiString(PANSI_STRING destination, PCSZ source);
/// Truncates to the destination's MaximumLength without a word; terminates only if there is room.
NTSYSAPI VOID RtlCopyUnicodeString(PUNICODE_STRING destination, PCUNICODE_STRING source);
/// Frees a buffer that an Rtl routine allocated.
NTSYSAPI VOID RtlFreeUnicodeString(PUNICODE_STRING string);

/// The three comparisons: PASSIVE_LEVEL when ignoring case.
NTSYSAPI LONG RtlCompareUnicodeString(PCUNICODE_STRING first, PCUNICODE_STRING second, BOOLEAN ignoreCase);
NTSYSAPI BOOLEAN RtlEqualUnicodeString(PCUNICODE_STRING first, PCUNICODE_STRING second, BOOLEAN ignoreCase);
NTSYSAPI BOOLEAN RtlPrefixUnicodeString(PCUNICODE_STRING prefix, PCUNICODE_STRING string, BOOLEAN ignoreCase);

NTSYSAPI NTSTATUS RtlUpcaseUnicodeString(PUNICODE_STRING destination, PCUNICODE_STRING source, BOOLEAN allocate);
NTSYSAPI WCHAR RtlUpcaseUnicodeChar(WCHAR character);

/// Stops at the first non-digit; success does not mean that a digit was found. PASSIVE_LEVEL.
NTSYSAPI NTSTATUS RtlUnicodeStringToInteger(PCUNICODE_STRING string, ULONG base, PULONG value);
NTSYSAPI NTSTATUS RtlIntegerToUnicodeString(ULONG value, ULONG base, PUNICODE_STRING string);

/// Bytes of the converted text, terminator included. PASSIVE_LEVEL.
NTSYSAPI ULONG RtlxAnsiStringToUnicodeSize(PCANSI_STRING string);
NTSYSAPI NTSTATUS RtlAnsiStringToUnicodeString(PUNICODE_STRING destination, PCANSI_STRING source, BOOLEAN allocate);
/// A null destination asks for the size. May return STATUS_SOME_NOT_MAPPED, a success code.
NTSYSAPI NTSTATUS RtlUnicodeToUTF8N(PCHAR destination, ULONG destinationBytes, PULONG resultBytes, PCWCH source,
                                    ULONG sourceBytes);

/// Wildcard match of the whole name; with `ignoreCase` the expression must be upper case already and the routine may
/// raise STATUS_NO_MEMORY. PASSIVE_LEVEL.
NTKERNELAPI BOOLEAN FsRtlIsNameInExpression(PUNICODE_STRING expression, PUNICODE_STRING name, BOOLEAN ignoreCase,
                                            PWCH upcaseTable);

EXTERN_C_END

#define RtlAnsiStringToUnicodeSize(string) RtlxAnsiStringToUnicodeSize(string)

FORCEINLINE VOID RtlInitEmptyUnicodeString(PUNICODE_STRING string, PWCHAR buffer, USHORT bytes) {
    string->Length = 0;
    string->MaximumLength = bytes;
    string->Buffer = buffer;
}
