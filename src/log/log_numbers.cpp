#include "log/log_stream.h"

LogStream &LogStream::setHex() {
    // Read again while a signed append waits for the radix, hence atomic.
    __atomic_store_n(&radix_, 16, __ATOMIC_RELAXED);
    return *this;
}

LogStream &LogStream::appendNumber(ULONG64 magnitude, bool negative) {
    constexpr USHORT mostCharacters = 1 + 20; // a sign and 2^64 in decimal
    WCHAR digits[mostCharacters];
    USHORT first = mostCharacters;
    const auto radix = static_cast<ULONG64>(radix_);
    do {
        const auto digit = static_cast<USHORT>(magnitude % radix);
        digits[--first] = static_cast<WCHAR>(digit < 10 ? L'0' + digit : L'a' + (digit - 10));
        magnitude /= radix;
    } while (magnitude != 0);
    if (negative) {
        digits[--first] = L'-';
    }
    return append(digits + first, (mostCharacters - first) * sizeof(WCHAR));
}

LogStream &LogStream::appendUnsigned64(ULONG64 value) {
    return appendNumber(value, false);
}

LogStream &LogStream::appendUnsigned32(ULONG value) {
    return appendNumber(value, false);
}

LogStream &LogStream::appendUnsigned16(USHORT value) {
    return appendNumber(value, false);
}

LogStream &LogStream::appendSigned16(SHORT value) {
    if (value >= 0) {
        return appendNumber(static_cast<ULONG64>(value), false);
    }
    if (radix_ == 16) {
        return appendNumber(static_cast<USHORT>(value), false);
    }
    return appendNumber(static_cast<ULONG64>(-LONG64{value}), true);
}

LogStream &LogStream::appendSigned32(LONG value) {
    if (value >= 0) {
        return appendNumber(static_cast<ULONG64>(value), false);
    }
    // A negative value can't be told in hexadecimal by this form. It waits for the radix to change; the relaxed atomic
    // read keeps the loop, which an optimiser may otherwise remove.
    while (__atomic_load_n(&radix_, __ATOMIC_RELAXED) == 16) {
    }
    return appendNumber(static_cast<ULONG64>(-LONG64{value}), true);
}

LogStream &LogStream::appendStatus(const LONG &value) {
    if (value >= 0) {
        return appendNumber(static_cast<ULONG64>(value), false);
    }
    if (radix_ == 16) {
        return appendNumber(static_cast<ULONG>(value), false);
    }
    return appendNumber(static_cast<ULONG64>(-LONG64{value}), true);
}
