#include "guid_text.h"

#include "../kernel/strings.h"

#include <fmt/format.h>

#include <cstdlib>

namespace sim::machine {

std::u16string textOfGuid(const GUID &guid) {
    const UCHAR *tail = guid.Data4;
    return toUtf16(fmt::format("{{{:08x}-{:04x}-{:04x}-{:02x}{:02x}-{:02x}{:02x}{:02x}{:02x}{:02x}{:02x}}}", guid.Data1,
                               guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6],
                               tail[7]));
}

std::optional<GUID> guidFromText(std::u16string_view text) {
    constexpr std::string_view form = "{00000000-0000-0000-0000-000000000000}";
    const std::string narrow = toUtf8(text);
    if (narrow.size() != form.size()) {
        return std::nullopt;
    }
    std::string digits;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool isDigit = std::isxdigit(static_cast<unsigned char>(narrow[i])) != 0;
        if (form[i] == '0' ? !isDigit : narrow[i] != form[i]) {
            return std::nullopt;
        }
        if (form[i] == '0') {
            digits += narrow[i];
        }
    }
    const auto number = [&](std::size_t at, std::size_t count) {
        return std::strtoul(digits.substr(at, count).c_str(), nullptr, 16);
    };
    GUID guid{};
    guid.Data1 = static_cast<ULONG>(number(0, 8));
    guid.Data2 = static_cast<USHORT>(number(8, 4));
    guid.Data3 = static_cast<USHORT>(number(12, 4));
    for (std::size_t i = 0; i < 8; ++i) {
        guid.Data4[i] = static_cast<UCHAR>(number(16 + 2 * i, 2));
    }
    return guid;
}

} // namespace sim::machine
