#pragma once

#include <ntifs.h>

/// A counted string over a literal, without its NUL. Lives as long as the literal.
template<size_t N>
constexpr UNICODE_STRING literal(const WCHAR (&text)[N]) {
    return UNICODE_STRING{static_cast<USHORT>((N - 1) * sizeof(WCHAR)), static_cast<USHORT>(N * sizeof(WCHAR)),
                          const_cast<PWSTR>(text)};
}

/// Characters of a counted string; an odd last byte does not count.
inline USHORT characterCount(const UNICODE_STRING &text) {
    return static_cast<USHORT>(text.Length / sizeof(WCHAR));
}

/// A view of `count` characters from `start`; no buffer when it is empty. The caller keeps within the string.
inline UNICODE_STRING part(const UNICODE_STRING &text, USHORT start, USHORT count) {
    if (count == 0) {
        return UNICODE_STRING{};
    }
    const auto bytes = static_cast<USHORT>(count * sizeof(WCHAR));
    return UNICODE_STRING{bytes, bytes, text.Buffer + start};
}

/// The string without trailing NUL characters (and without an odd last byte).
inline UNICODE_STRING withoutTrailingNuls(const UNICODE_STRING &text) {
    USHORT count = characterCount(text);
    while (count > 0 && text.Buffer[count - 1] == L'\0') {
        --count;
    }
    return UNICODE_STRING{static_cast<USHORT>(count * sizeof(WCHAR)), text.MaximumLength, text.Buffer};
}

/// PASSIVE_LEVEL, as every comparison of counted strings.
inline bool equalCaseSensitive(const UNICODE_STRING &a, const UNICODE_STRING &b) {
    return RtlEqualUnicodeString(&a, &b, FALSE) != FALSE;
}

inline bool equalIgnoringCase(const UNICODE_STRING &a, const UNICODE_STRING &b) {
    return RtlEqualUnicodeString(&a, &b, TRUE) != FALSE;
}

/// A counted string over a NUL-terminated field of `capacity` characters.
inline UNICODE_STRING fieldText(const WCHAR *field, USHORT capacity) {
    USHORT count = 0;
    while (count < capacity && field[count] != L'\0') {
        ++count;
    }
    const auto bytes = static_cast<USHORT>(count * sizeof(WCHAR));
    return UNICODE_STRING{bytes, bytes, const_cast<PWSTR>(field)};
}

/// Copies as many characters as fit into a fixed field and ends them with a NUL.
template<size_t N>
void copyToField(WCHAR (&field)[N], const UNICODE_STRING &text) {
    const size_t count = characterCount(text) < N - 1 ? characterCount(text) : N - 1;
    if (count > 0) {
        RtlCopyMemory(field, text.Buffer, count * sizeof(WCHAR));
    }
    field[count] = L'\0';
}
