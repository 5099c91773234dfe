// The system's upcase table and host-side text conversion.

#include "strings.h"

#include <algorithm>
#include <array>
#include <memory>
#include <unicode/uchar.h>

namespace sim {

namespace {

using UpcaseTable = std::array<char16_t, 0x10000>;

/// One UTF-16 unit to one, from the Unicode simple mappings inside the basic plane. The system's table is older than
/// some of them: it leaves micro sign and dotless i alone, since their capitals belong to other scripts or languages
/// (recalled), and never maps beyond one unit.
std::unique_ptr<const UpcaseTable> makeTable() {
    auto table = std::make_unique<UpcaseTable>();
    for (unsigned unit = 0; unit < table->size(); ++unit) {
        const UChar32 upper = u_toupper(static_cast<UChar32>(unit));
        const bool surrogate = unit >= 0xD800 && unit <= 0xDFFF;
        const bool keeps = surrogate || upper > 0xFFFF || unit == 0x00B5 || unit == 0x0131 || unit == 0x017F;
        (*table)[unit] = static_cast<char16_t>(keeps ? unit : upper);
    }
    return table;
}

const UpcaseTable &table() {
    static const std::unique_ptr<const UpcaseTable> instance = makeTable();
    return *instance;
}

bool isLead(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isTrail(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendUtf8(std::string &text, char32_t point) {
    const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | point >> 6);
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | point >> 12);
        put(0x80 | (point >> 6 & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | point >> 18);
        put(0x80 | (point >> 12 & 0x3F));
        put(0x80 | (point >> 6 & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

/// Decodes one character, surrogates included; bytes that are no UTF-8 become U+FFFD one by one.
char32_t takeUtf8(std::string_view &text) {
    const auto lead = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    const unsigned more = lead >= 0xF0 && lead < 0xF8 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (lead < 0x80) {
        return lead;
    }
    if (more == 0 || lead >= 0xF8 || text.size() < more) {
        return 0xFFFD;
    }
    char32_t point = lead & (0x3Fu >> more);
    for (unsigned index = 0; index < more; ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if ((byte & 0xC0) != 0x80) {
            return 0xFFFD;
        }
        point = point << 6 | (byte & 0x3F);
    }
    const char32_t smallest = more == 1 ? 0x80 : more == 2 ? 0x800 : 0x10000;
    if (point < smallest || point > 0x10FFFF) {
        return 0xFFFD;
    }
    text.remove_prefix(more);
    return point;
}

} // namespace

char16_t upcase(char16_t unit) {
    return table()[unit];
}

std::u16string upcase(std::u16string_view text) {
    std::u16string result(text);
    const char16_t *capitals = table().data();
    for (char16_t &unit : result) {
        unit = capitals[unit];
    }
    return result;
}

bool equalNoCase(std::u16string_view a, std::u16string_view b) {
    const UpcaseTable &units = table();
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [&units](char16_t x, char16_t y) { return units[x] == units[y]; });
}

std::u16string toUtf16(std::string_view utf8) {
    std::u16string result;
    result.reserve(utf8.size());
    while (!utf8.empty()) {
        const char32_t point = takeUtf8(utf8);
        if (point < 0x10000) {
            result += static_cast<char16_t>(point);
        } else {
            result += static_cast<char16_t>(0xD7C0 + (point >> 10));
            result += static_cast<char16_t>(0xDC00 | (point & 0x3FF));
        }
    }
    return result;
}

std::string toUtf8(std::u16string_view utf16) {
    std::string result;
    result.reserve(utf16.size());
    for (std::size_t index = 0; index < utf16.size(); ++index) {
        char32_t point = utf16[index];
        if (isLead(point) && index + 1 < utf16.size() && isTrail(utf16[index + 1])) {
            point = 0x10000 + ((point & 0x3FF) << 10) + (utf16[++index] & 0x3FF);
        }
        appendUtf8(result, point);
    }
    return result;
}

} // namespace sim
