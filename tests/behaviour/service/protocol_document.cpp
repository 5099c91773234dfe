#include "protocol_document.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace behaviour::document {
namespace {

std::vector<std::string> linesOfDocument() {
    std::ifstream stream(SERVICE_PROTOCOL_DOCUMENT);
    if (!stream) {
        throw std::runtime_error("cannot read " SERVICE_PROTOCOL_DOCUMENT);
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

using LinePosition = std::vector<std::string>::const_iterator;

LinePosition findStart(const std::vector<std::string> &lines, std::string_view start) {
    const auto found =
        std::find_if(lines.begin(), lines.end(), [&](const auto &line) { return line.starts_with(start); });
    if (found == lines.end()) {
        throw std::runtime_error("the document has no line \"" + std::string(start) + "…\"");
    }
    return found;
}

std::string withoutBlanksAround(const std::string &text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

/// Cells stand between bars; a bar behind a backslash is text.
std::vector<std::string> cellsOf(const std::string &row) {
    std::vector<std::string> cells(1);
    for (std::size_t at = 1; at < row.size(); ++at) {
        if (row[at] == '|' && row[at - 1] != '\\') {
            cells.emplace_back();
        } else if (row[at] != '`') {
            cells.back() += row[at];
        }
    }
    cells.pop_back(); // behind the last bar
    std::transform(cells.begin(), cells.end(), cells.begin(), withoutBlanksAround);
    return cells;
}

std::size_t bytesIn(const std::string &shown) {
    return (shown.size() + 1) / 3;
}

void addLine(HexDump &dump, std::vector<bool> &seen, const std::string &line) {
    static const std::regex form("^ *([0-9]+)  ((?:(?:[0-9a-f]{2}|\\.\\.) ?)+?)(?:  +([^ ].*))?$");
    std::smatch parts;
    if (!std::regex_match(line, parts, form)) {
        throw std::runtime_error("no line of a hex dump: " + line);
    }
    const std::size_t offset = std::stoul(parts[1]);
    const std::string shown = parts[2];
    for (std::size_t index = 0; index < bytesIn(shown); ++index) {
        const std::string byte = shown.substr(3 * index, 2);
        if (seen.at(offset + index)) {
            throw std::runtime_error("shown twice: " + line);
        }
        seen[offset + index] = true;
        dump.bytes[offset + index] =
            byte == ".." ? std::nullopt : std::optional<std::uint8_t>(std::stoul(byte, nullptr, 16));
    }
    if (parts[3].matched) {
        dump.fields.push_back({offset, bytesIn(shown), parts[3]});
    }
}

} // namespace

std::vector<std::vector<std::string>> tableAfter(std::string_view lineStart) {
    const std::vector<std::string> lines = linesOfDocument();
    const auto isRow = [](const std::string &line) { return line.starts_with("|"); };
    const auto head = std::find_if(findStart(lines, lineStart), lines.end(), isRow);
    const auto end = std::find_if_not(head, lines.end(), isRow);
    if (end - head < 3) {
        throw std::runtime_error("no table behind " + std::string(lineStart));
    }
    std::vector<std::vector<std::string>> rows;
    std::transform(head + 2, end, std::back_inserter(rows), cellsOf);
    return rows;
}

HexDump hexDump(std::string_view name) {
    const std::string fence = "```hex " + std::string(name) + " ";
    const std::vector<std::string> lines = linesOfDocument();
    auto line = findStart(lines, fence);
    HexDump dump;
    dump.bytes.resize(std::stoul(line->substr(fence.size())), std::uint8_t{0});
    std::vector<bool> seen(dump.bytes.size());
    for (++line; *line != "```"; ++line) {
        addLine(dump, seen, *line);
    }
    return dump;
}

std::optional<std::uint32_t> numberOf(std::string text) {
    std::erase(text, ',');
    const bool hexadecimal = text.starts_with("0x");
    const std::string digits = hexadecimal ? text.substr(2) : text;
    const char *const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(std::stoul(digits, nullptr, hexadecimal ? 16 : 10));
}

} // namespace behaviour::document
