#include "value_parser.h"

#include "../../simulator/kernel/strings.h"
#include "../text/display.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace cli {
namespace {

constexpr std::size_t longestText = 16u << 20; ///< in UTF-16 units; a guard against slips and hostile files

std::u16string parseRepeat(const YamlNode &node, const YamlNode &repeat, const std::optional<YamlNode> &times) {
    const auto count = times ? times->number("times", longestText) : std::optional<std::uint64_t>(1);
    const std::u16string unit = parseUtf16(repeat, "repeat").value_or(u"");
    std::u16string text;
    if (count && unit.size() * *count > longestText) {
        node.problem("the repeated text is longer than 16 million characters");
        return text;
    }
    for (std::uint64_t i = 0; count && i < *count && !unit.empty(); ++i) {
        text += unit;
    }
    node.countText(text.size());
    return text;
}

std::u16string parseUnits(const YamlNode &node, const YamlNode &units) {
    std::u16string text;
    for (const YamlNode &unit : units.items()) {
        if (const auto number = unit.number("a UTF-16 unit", 0xFFFF)) {
            text += static_cast<char16_t>(*number);
        }
    }
    node.countText(text.size());
    return text;
}

std::optional<std::u16string> parsePart(const YamlNode &node, std::string_view what) {
    if (!node.isMap()) {
        const auto text = node.text(what);
        return text ? std::optional(sim::toUtf16(*text)) : std::nullopt;
    }
    MapReader reader(node, "a part of " + std::string(what));
    const auto repeat = reader.take("repeat");
    const auto times = reader.take("times");
    const auto units = reader.take("units");
    reader.finish();
    if (repeat.has_value() == units.has_value() || (times && !repeat)) {
        node.problem(fmt::format("a part of {} needs 'repeat' and 'times', or 'units'", what));
        return std::nullopt;
    }
    return repeat ? parseRepeat(node, *repeat, times) : parseUnits(node, *units);
}

struct TypeName {
    std::uint32_t type;
    const char *name;
};

constexpr TypeName typeNames[] = {
    {0, "REG_NONE"},
    {1, "REG_SZ"},
    {2, "REG_EXPAND_SZ"},
    {3, "REG_BINARY"},
    {4, "REG_DWORD"},
    {5, "REG_DWORD_BIG_ENDIAN"},
    {6, "REG_LINK"},
    {7, "REG_MULTI_SZ"},
    {8, "REG_RESOURCE_LIST"},
    {9, "REG_FULL_RESOURCE_DESCRIPTOR"},
    {10, "REG_RESOURCE_REQUIREMENTS_LIST"},
    {11, "REG_QWORD"},
};

std::optional<std::uint32_t> parseType(const YamlNode &node) {
    if (node.plainNumber()) {
        const auto number = node.number("value type", 0xFFFFFFFF);
        return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
    }
    const auto name = node.word("value type", valueTypeNames());
    for (const TypeName &known : typeNames) {
        if (name && *name == known.name) {
            return known.type;
        }
    }
    return std::nullopt;
}

std::vector<std::uint8_t> numberBytes(std::uint64_t number, std::uint32_t type) {
    const std::size_t size = type == 11 ? 8 : 4;
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
    if (type == 5) {
        std::reverse(bytes.begin(), bytes.end());
    }
    return bytes;
}

std::optional<ValueData> parseTypedValue(const YamlNode &node, std::string_view what) {
    MapReader reader(node, std::string(what));
    const auto type = reader.take("type");
    const auto text = reader.take("text");
    const auto strings = reader.take("strings");
    const auto number = reader.take("number");
    const auto bytes = reader.take("bytes");
    const auto terminated = reader.take("terminated");
    reader.finish();
    if (text.has_value() + strings.has_value() + number.has_value() + bytes.has_value() != 1) {
        node.problem(fmt::format("{} needs exactly one of text, strings, number and bytes", what));
        return std::nullopt;
    }
    const std::uint32_t usualType = text ? 1 : strings ? 7 : number ? 4 : 3;
    ValueData value{type ? parseType(*type).value_or(usualType) : usualType, {}};
    if (terminated && !text) {
        terminated->problem("'terminated' goes with 'text' only");
    }
    if (text) {
        const bool withNul = !terminated || terminated->flag("terminated").value_or(true);
        value.data = textBytes(parseUtf16(*text, what).value_or(u""), withNul);
    } else if (strings) {
        value.data = multiStringBytes(parseUtf16List(*strings, what));
    } else if (number) {
        const std::uint64_t highest = value.type == 11 ? ~std::uint64_t{0} : 0xFFFFFFFF;
        value.data = numberBytes(number->number(what, highest).value_or(0), value.type);
    } else {
        value.data = bytes->bytes(what).value_or(std::vector<std::uint8_t>());
    }
    return value;
}

std::u16string asText(const std::vector<std::uint8_t> &data) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        text += static_cast<char16_t>(data[i] | data[i + 1] << 8);
    }
    return text;
}

std::string describeStrings(std::u16string text) {
    text.erase(text.find_last_not_of(u'\0') + 1);
    std::string list;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(u'\0', start), text.size());
        list += (list.empty() ? "" : ", ") + visibleText(sim::toUtf8(text.substr(start, end - start)));
        start = end + 1;
    }
    return list;
}

} // namespace

std::optional<std::u16string> parseUtf16(const YamlNode &node, std::string_view what) {
    if (!node.isList()) {
        return parsePart(node, what);
    }
    std::u16string text;
    std::size_t counted = 0;
    for (const YamlNode &part : node.items()) {
        text += parsePart(part, what).value_or(u"");
        part.countText(text.size() - std::exchange(counted, text.size()));
    }
    return text;
}

std::vector<std::u16string> parseUtf16List(const YamlNode &node, std::string_view what) {
    std::vector<std::u16string> strings;
    for (const YamlNode &item : node.items()) {
        if (auto text = parseUtf16(item, what)) {
            strings.push_back(std::move(*text));
        }
    }
    return strings;
}

std::optional<ValueData> parseValue(const YamlNode &node, std::string_view what) {
    if (node.isMap()) {
        return parseTypedValue(node, what);
    }
    if (node.isList()) {
        return ValueData{7, multiStringBytes(parseUtf16List(node, what))};
    }
    if (const auto number = node.plainNumber()) {
        if (*number <= 0xFFFFFFFF) {
            return ValueData{4, dwordBytes(static_cast<std::uint32_t>(*number))};
        }
        node.problem(
            fmt::format("{} does not fit a REG_DWORD; write {{type: REG_QWORD, number: N}} or quote it", what));
        return std::nullopt;
    }
    const auto text = node.text(what);
    return text ? std::optional(ValueData{1, textBytes(sim::toUtf16(*text), true)}) : std::nullopt;
}

std::vector<std::uint8_t> textBytes(std::u16string_view text, bool terminated) {
    std::vector<std::uint8_t> bytes(text.size() * 2 + (terminated ? 2 : 0));
    std::uint8_t *next = bytes.data();
    for (const char16_t unit : text) {
        *next++ = static_cast<std::uint8_t>(unit);
        *next++ = static_cast<std::uint8_t>(unit >> 8);
    }
    return bytes;
}

std::vector<std::uint8_t> multiStringBytes(const std::vector<std::u16string> &strings) {
    std::u16string joined;
    for (const std::u16string &string : strings) {
        joined += string + u'\0';
    }
    return textBytes(joined, true);
}

std::vector<std::uint8_t> dwordBytes(std::uint32_t number) {
    return numberBytes(number, 4);
}

const std::vector<std::string> &valueTypeNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const TypeName &known : typeNames) {
            list.emplace_back(known.name);
        }
        return list;
    }();
    return names;
}

std::string valueTypeName(std::uint32_t type) {
    for (const TypeName &known : typeNames) {
        if (known.type == type) {
            return known.name;
        }
    }
    return fmt::format("type 0x{:x}", type);
}

std::string describeValue(const ValueData &value) {
    const std::string type = valueTypeName(value.type) + " ";
    const std::vector<std::uint8_t> &data = value.data;
    const bool evenText = data.size() % 2 == 0;
    if (value.type == 4 && data.size() == 4) {
        return type +
               fmt::format("{}", data[0] | data[1] << 8 | data[2] << 16 | static_cast<std::uint32_t>(data[3]) << 24);
    }
    if ((value.type == 1 || value.type == 2) && evenText && data.size() >= 2 && asText(data).back() == u'\0') {
        std::u16string text = asText(data);
        text.pop_back();
        return type + "'" + clipped(visibleText(sim::toUtf8(text))) + "'";
    }
    // Only the usual form is shown as a list; anything odd is shown byte by byte so that the difference is seen.
    if (value.type == 7 && evenText && data.size() >= 4) {
        const std::u16string text = asText(data);
        if (text[text.size() - 1] == u'\0' && text[text.size() - 2] == u'\0') {
            return type + "[" + clipped(describeStrings(text)) + "]" + (text.size() == 2 ? " (two NULs)" : "");
        }
    }
    return type + (data.empty() ? "without data" : "bytes " + clipped(hexText(data, " ")));
}

} // namespace cli
