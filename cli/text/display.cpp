#include "display.h"

#include "../../simulator/kernel/strings.h"

#include <fmt/format.h>

namespace cli {
namespace {

bool startsCodePoint(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

bool mayBreakAfter(char byte) {
    return byte == ' ' || byte == '\\' || byte == '&' || byte == ',';
}

std::string withoutTrailingBlanks(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

std::string visibleText(std::string_view text) {
    std::string visible;
    visible.reserve(text.size());
    const char *bytes = text.data();
    std::size_t shown = 0; // what stands before it is in `visible`; logs are long, so the rest goes in runs
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto code = static_cast<unsigned char>(bytes[i]);
        if (code < 0x20) { // U+2400 and up are pictures of the control characters
            visible.append(bytes + shown, i - shown);
            visible += "\xE2\x90";
            visible += static_cast<char>(0x80 + code);
            shown = i + 1;
        }
    }
    visible.append(bytes + shown, text.size() - shown);
    return visible;
}

std::string visibleText(std::u16string_view text) {
    return visibleText(sim::toUtf8(text));
}

std::string clipped(const std::string &text, std::size_t most) {
    const std::size_t columns = displayWidth(text);
    if (columns <= most) {
        return text;
    }
    std::size_t end = 0;
    for (std::size_t kept = 0; end < text.size(); ++end) {
        kept += startsCodePoint(text[end]) ? 1 : 0;
        if (kept > most / 2) {
            break;
        }
    }
    return fmt::format("{}… ({} characters)", text.substr(0, end), columns);
}

std::string hexText(const std::vector<std::uint8_t> &bytes, std::string_view separator) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * (2 + separator.size())); // of a registry, megabytes
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += separator;
        }
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::size_t displayWidth(std::string_view text) {
    std::size_t columns = 0;
    for (const char byte : text) {
        columns += startsCodePoint(byte) ? 1 : 0;
    }
    return columns;
}

std::vector<std::string> wrapText(std::string_view text, std::size_t width) {
    width = width == 0 ? 1 : width;
    std::vector<std::string> lines;
    std::string line;
    std::size_t columns = 0;
    std::size_t breakAt = 0; ///< bytes of `line` up to the last place where it may be broken
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (startsCodePoint(text[i]) && columns == width) {
            const std::size_t cut = breakAt > 0 ? breakAt : line.size();
            lines.push_back(withoutTrailingBlanks(line.substr(0, cut)));
            line.erase(0, cut);
            columns = displayWidth(line);
            breakAt = 0;
        }
        columns += startsCodePoint(text[i]) ? 1 : 0;
        line += text[i];
        if (mayBreakAfter(text[i])) {
            breakAt = line.size();
        }
    }
    if (!line.empty() || lines.empty()) {
        lines.push_back(withoutTrailingBlanks(std::move(line)));
    }
    return lines;
}

} // namespace cli
