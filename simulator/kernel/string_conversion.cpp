// Conversions between counted strings, numbers and other encodings.

#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

using namespace sim;

namespace {

/// What the upper half of the system's ANSI code page, 1252, stands for from 0x80 to 0x9F; the rest is Latin-1.
constexpr std::array<char16_t, 32> codePage1252{0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                                0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

WCHAR fromAnsi(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return static_cast<WCHAR>(byte >= 0x80 && byte < 0xA0 ? codePage1252[byte - 0x80] : byte);
}

std::optional<ULONG> digitValue(char16_t unit, ULONG base) {
    ULONG value = base;
    if (unit >= u'0' && unit <= u'9') {
        value = unit - u'0';
    } else if (unit >= u'a' && unit <= u'z') {
        value = unit - u'a' + 10;
    } else if (unit >= u'A' && unit <= u'Z') {
        value = unit - u'A' + 10;
    }
    return value < base ? std::optional(value) : std::nullopt;
}

/// Takes a base prefix off the text: 0x, 0o or 0b, lower case only.
ULONG takeBase(std::u16string_view &text) {
    ULONG base = 10;
    if (text.starts_with(u"0x")) {
        base = 16;
    } else if (text.starts_with(u"0o")) {
        base = 8;
    } else if (text.starts_with(u"0b")) {
        base = 2;
    }
    text.remove_prefix(base == 10 ? 0 : 2);
    return base;
}

/// Narrows the ASCII that a text begins with, of at most `most` characters, and takes it off. Nearly all text is ASCII,
/// and logs are long: what is not is converted character by character.
ULONG takeAscii(std::u16string_view &text, char *destination, std::size_t most) {
    const char16_t *units = text.data();
    const std::size_t limit = std::min(text.size(), most);
    std::size_t count = 0;
    while (count < limit && units[count] < 0x80) {
        ++count;
    }
    if (destination != nullptr) {
        for (std::size_t index = 0; index < count; ++index) {
            destination[index] = static_cast<char>(units[index]);
        }
    }
    text.remove_prefix(count);
    return static_cast<ULONG>(count);
}

/// One character as UTF-8; `replaced` is set when it was half of a surrogate pair.
struct Utf8Character {
    std::array<char, 4> bytes;
    ULONG count;
    bool replaced;
};

Utf8Character takeCharacter(std::u16string_view &text) {
    const auto isLead = [](char16_t unit) { return (unit & 0xFC00) == 0xD800; };
    const auto isTrail = [](char16_t unit) { return (unit & 0xFC00) == 0xDC00; };
    const bool pair = text.size() > 1 && isLead(text[0]) && isTrail(text[1]);
    const bool lone = !pair && (isLead(text[0]) || isTrail(text[0]));
    const std::string bytes = lone ? std::string("\xEF\xBF\xBD") : toUtf8(text.substr(0, pair ? 2 : 1));
    text.remove_prefix(pair ? 2 : 1);
    Utf8Character result{{}, static_cast<ULONG>(bytes.size()), lone};
    std::copy(bytes.begin(), bytes.end(), result.bytes.begin());
    return result;
}

} // namespace

// learn.microsoft.com: RtlUnicodeStringToInteger
extern "C" NTSTATUS RtlUnicodeStringToInteger(PCUNICODE_STRING string, ULONG base, PULONG value) {
    constexpr auto routine = "RtlUnicodeStringToInteger";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    kernel().pool.checkAccess(string->Buffer, string->Length & ~1u, routine, callSite);
    std::u16string_view text = view(*string);
    const bool knownBase = base == 0 || base == 2 || base == 8 || base == 10 || base == 16;
    if (!knownBase || text.empty()) {
        return STATUS_INVALID_PARAMETER;
    }
    while (!text.empty() && text.front() <= u' ') {
        text.remove_prefix(1);
    }
    const bool negative = text.starts_with(u'-');
    if (negative || text.starts_with(u'+')) {
        text.remove_prefix(1);
    }
    const ULONG digits = base == 0 ? takeBase(text) : base;
    ULONG number = 0;
    for (const char16_t unit : text) {
        const auto digit = digitValue(unit, digits);
        if (!digit) {
            break;
        }
        number = number * digits + *digit;
    }
    *value = negative ? 0u - number : number;
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlIntegerToUnicodeString. Base 0 means 10; digits above 9 are upper case (recalled).
extern "C" NTSTATUS RtlIntegerToUnicodeString(ULONG value, ULONG base, PUNICODE_STRING string) {
    constexpr auto routine = "RtlIntegerToUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    const ULONG digits = base == 0 ? 10 : base;
    if (digits != 2 && digits != 8 && digits != 10 && digits != 16) {
        return STATUS_INVALID_PARAMETER;
    }
    std::u16string text;
    do {
        text.insert(text.begin(), u"0123456789ABCDEF"[value % digits]);
        value /= digits;
    } while (value != 0);
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(WCHAR));
    if (string->MaximumLength < bytes) {
        return STATUS_BUFFER_OVERFLOW;
    }
    kernel().pool.checkAccess(string->Buffer, bytes, routine, callSite);
    std::memcpy(string->Buffer, text.data(), bytes);
    string->Length = bytes;
    if (bytes + sizeof(WCHAR) <= string->MaximumLength) {
        string->Buffer[text.size()] = 0;
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlxAnsiStringToUnicodeSize
extern "C" ULONG RtlxAnsiStringToUnicodeSize(PCANSI_STRING string) {
    requirePassive("RtlxAnsiStringToUnicodeSize", SIM_CALL_SITE);
    return (string->Length + 1u) * static_cast<ULONG>(sizeof(WCHAR));
}

// learn.microsoft.com: RtlAnsiStringToUnicodeString
extern "C" NTSTATUS RtlAnsiStringToUnicodeString(PUNICODE_STRING destination, PCANSI_STRING source, BOOLEAN allocate) {
    constexpr auto routine = "RtlAnsiStringToUnicodeString";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    kernel().pool.checkAccess(source->Buffer, source->Length, routine, callSite);
    const ULONG total = (source->Length + 1u) * static_cast<ULONG>(sizeof(WCHAR));
    if (total > 0xFFFF) {
        return STATUS_INVALID_PARAMETER_2;
    }
    destination->Length = static_cast<USHORT>(total - sizeof(WCHAR));
    if (allocate) {
        if (kernel().faults.shouldFail(routine)) {
            return kernel().faults.statusFor(routine, STATUS_NO_MEMORY);
        }
        destination->Buffer = static_cast<PWCH>(kernel().pool.allocate(total, stringTag, true, false, true, callSite));
        destination->MaximumLength = static_cast<USHORT>(total);
    } else if (destination->Length >= destination->MaximumLength) {
        return STATUS_BUFFER_OVERFLOW;
    }
    kernel().pool.checkAccess(destination->Buffer, total, routine, callSite);
    std::transform(source->Buffer, source->Buffer + source->Length, destination->Buffer, fromAnsi);
    destination->Buffer[source->Length] = 0;
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlUnicodeToUTF8N
extern "C" NTSTATUS RtlUnicodeToUTF8N(PCHAR destination, ULONG destinationBytes, PULONG resultBytes, PCWCH source,
                                      ULONG sourceBytes) {
    constexpr auto routine = "RtlUnicodeToUTF8N";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (source == nullptr) {
        return STATUS_INVALID_PARAMETER_4;
    }
    if (destination == nullptr && resultBytes == nullptr) {
        return STATUS_INVALID_PARAMETER;
    }
    if (destination != nullptr && sourceBytes % sizeof(WCHAR) != 0) {
        return STATUS_INVALID_PARAMETER_5;
    }
    kernel().pool.checkAccess(source, sourceBytes & ~1u, routine, callSite);
    if (destination != nullptr) {
        kernel().pool.checkAccess(destination, destinationBytes, routine, callSite);
    }
    std::u16string_view text{reinterpret_cast<const char16_t *>(source), sourceBytes / sizeof(WCHAR)};
    NTSTATUS status = STATUS_SUCCESS;
    ULONG written = 0;
    for (;;) {
        const bool measures = destination == nullptr;
        written += takeAscii(text, measures ? nullptr : destination + written,
                             measures ? text.size() : destinationBytes - written);
        if (text.empty()) {
            break;
        }
        const Utf8Character character = takeCharacter(text);
        if (destination != nullptr) {
            if (character.count > destinationBytes - written) {
                status = STATUS_BUFFER_TOO_SMALL;
                break;
            }
            std::memcpy(destination + written, character.bytes.data(), character.count);
        }
        written += character.count;
        status = character.replaced ? STATUS_SOME_NOT_MAPPED : status;
    }
    if (resultBytes != nullptr) {
        *resultBytes = written;
    }
    return status;
}
