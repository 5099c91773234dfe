#include "reg_text.h"

#include "../../simulator/kernel/strings.h"
#include "../scenario/problem.h"

namespace cli {
namespace {

constexpr char16_t westernHigh[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

std::u16string decodeUtf16(std::string_view bytes, const std::string &file) {
    if (bytes.size() % 2 != 0) {
        throw UnusableFile({file, 0}, "is UTF-16 but has an odd number of bytes");
    }
    std::u16string text;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        text +=
            static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
    return text;
}

std::vector<std::u16string> splitLines(std::u16string_view text) {
    std::vector<std::u16string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find(u'\n');
        std::u16string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == u'\r') {
            line.remove_suffix(1);
        }
        lines.emplace_back(line);
        text.remove_prefix(end == std::u16string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

} // namespace

std::u16string decodeWestern(std::string_view bytes) {
    std::u16string text;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        text += code >= 0x80 && code < 0xA0 ? westernHigh[code - 0x80] : static_cast<char16_t>(code);
    }
    return text;
}

RegText decodeRegText(std::string_view bytes, const std::string &file) {
    constexpr std::string_view header4 = "REGEDIT4";
    constexpr std::u16string_view header5 = u"Windows Registry Editor Version 5.00";
    RegText text;
    if (bytes.starts_with("\xFE\xFF")) {
        throw UnusableFile({file, 0}, "is big-endian UTF-16; Registry Editor reads little-endian UTF-16 only");
    }
    if (bytes.starts_with(header4)) {
        text.version4 = true;
        text.lines = splitLines(decodeWestern(bytes));
        return text;
    }
    if (bytes.starts_with("\xFF\xFE")) {
        text.lines = splitLines(decodeUtf16(bytes.substr(2), file));
    } else {
        if (bytes.starts_with("\xEF\xBB\xBF")) {
            bytes.remove_prefix(3);
        }
        text.lines = splitLines(sim::toUtf16(bytes));
    }
    if (text.lines.empty() || text.lines.front() != header5) {
        throw UnusableFile({file, 1}, "is no Registry Editor export: its first line must be "
                                      "'Windows Registry Editor Version 5.00' or 'REGEDIT4'");
    }
    return text;
}

} // namespace cli
