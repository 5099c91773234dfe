#pragma once

#include <ntifs.h>

#include <string>
#include <string_view>

namespace sim {

/// The system's upcase table: one UTF-16 unit to one, as RtlUpcaseUnicodeChar.
char16_t upcase(char16_t unit);
std::u16string upcase(std::u16string_view text);
bool equalNoCase(std::u16string_view a, std::u16string_view b);

/// Whether the whole name fits the expression with the file system's wildcards (* ? < > "), units compared as they are.
bool nameMatches(std::u16string_view expression, std::u16string_view name);

/// Lone surrogates survive as three-byte sequences (WTF-8) both ways, so any UTF-16 text can be carried.
std::u16string toUtf16(std::string_view utf8);
std::string toUtf8(std::u16string_view utf16);

constexpr ULONG stringTag = 'grtS'; ///< the kernel's own tag on strings that Rtl routines allocate (recalled)

inline std::u16string_view view(const UNICODE_STRING &text) {
    return {reinterpret_cast<const char16_t *>(text.Buffer), static_cast<std::size_t>(text.Length / 2)};
}

} // namespace sim
