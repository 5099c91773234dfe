#pragma once

#include <ntifs.h>

#include "log/kstring.h"
#include "log/log_stream.h"
#include "log/logger.h"

/// A 32-bit status in hexadecimal (without "0x"); later numbers of the line are hexadecimal too.
struct HexStatus {
    NTSTATUS value;
};
/// An address or other 64-bit number in hexadecimal (without "0x").
struct HexNumber {
    ULONG64 value;
};
/// A number in decimal.
struct DecimalNumber {
    ULONG64 value;
};

inline HexStatus hex(NTSTATUS status) {
    return HexStatus{status};
}
inline HexNumber hexAddress(const void *address) {
    return HexNumber{reinterpret_cast<ULONG_PTR>(address)};
}
inline HexNumber hexNumber(ULONG64 value) {
    return HexNumber{value};
}
inline DecimalNumber decimal(ULONG64 value) {
    return DecimalNumber{value};
}
/// A truth value: "1" or "0".
inline DecimalNumber flag(bool value) {
    return DecimalNumber{value ? 1u : 0u};
}

inline LogStream &operator<<(LogStream &line, const WCHAR *text) {
    return line.append(text);
}
inline LogStream &operator<<(LogStream &line, const UNICODE_STRING &text) {
    return line.append(text);
}
inline LogStream &operator<<(LogStream &line, HexStatus status) {
    return line.setHex().appendStatus(status.value);
}
inline LogStream &operator<<(LogStream &line, HexNumber number) {
    return line.setHex().appendUnsigned64(number.value);
}
inline LogStream &operator<<(LogStream &line, DecimalNumber number) {
    return line.appendUnsigned64(number.value);
}

/// Makes the parts of a line few types, so that lines of the same shape share their code.
inline const WCHAR *logPart(const WCHAR *text) {
    return text;
}
inline UNICODE_STRING logPart(const UNICODE_STRING &text) {
    return text;
}
inline UNICODE_STRING logPart(const KString &text) {
    return text.view();
}
inline HexStatus logPart(HexStatus status) {
    return status;
}
inline HexNumber logPart(HexNumber number) {
    return number;
}
inline DecimalNumber logPart(DecimalNumber number) {
    return number;
}

/// Builds and submits one line. Out of line and cold: reached only when the level lets the line through.
template<typename... Parts>
[[gnu::cold, gnu::noinline]] void submitLogLine(LogLevel level, Parts... parts) {
    LogStream line(level);
    (line << ... << parts);
    line.submit();
}

template<typename... Parts>
[[gnu::always_inline]] inline void submitLogParts(LogLevel level, const Parts &...parts) {
    submitLogLine(level, logPart(parts)...);
}

/// One statement logs one line. Its parts are evaluated only when the line is written.
#define LOG_AT(level, ...)                                                                                             \
    do {                                                                                                               \
        if (isLogged(level)) [[unlikely]] {                                                                            \
            submitLogParts(level, __VA_ARGS__);                                                                        \
        }                                                                                                              \
    } while (false)
#define LOG_ERROR(...) LOG_AT(LogLevel::error, __VA_ARGS__)
#define LOG_INFO(...) LOG_AT(LogLevel::info, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_AT(LogLevel::debug, __VA_ARGS__)
