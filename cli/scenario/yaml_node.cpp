#include "yaml_node.h"

#include "../text/whole_file.h"
#include "suggestion.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <yaml-cpp/depthguard.h>

namespace cli {
namespace {

constexpr int deepestMerge = 8;
constexpr int deepestNode = 100;
constexpr std::size_t mostNodes = 500'000;
constexpr std::size_t mostText = 32u << 20; ///< in UTF-16 units
constexpr std::uintmax_t largestYamlFile = 64u << 20;

int lineAt(std::string_view text, std::size_t position) {
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
}

/// YAML may come in UTF-16 and UTF-32 too; the parser knows these by their byte-order marks.
bool isWide(std::string_view text) {
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ||
           text.starts_with(std::string_view("\0\0\xFE\xFF", 4));
}

void requireText(std::string_view text, const std::string &file) {
    if (text.empty()) {
        throw UnusableFile({file, 0}, "is empty");
    }
    const auto odd = isWide(text) ? std::nullopt : firstOddByte(text);
    if (odd) {
        throw UnusableFile({file, lineAt(text, *odd)}, fmt::format("is no UTF-8 text: byte 0x{:02x} at offset {}",
                                                                   static_cast<unsigned char>(text[*odd]), *odd));
    }
}

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

} // namespace

std::optional<std::vector<std::uint8_t>> parseHexBytes(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    int high = -1;
    for (const char character : text) {
        if (character == ' ' || character == ',' || character == '\n') {
            if (high >= 0) {
                return std::nullopt;
            }
            continue;
        }
        const int digit = hexDigit(character);
        if (digit < 0) {
            return std::nullopt;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0) {
        return std::nullopt;
    }
    return bytes;
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

YamlNode::YamlNode(YAML::Node yaml, std::shared_ptr<Reading> reading, Problems &problems, int depth)
    : yaml_(std::move(yaml)), reading_(std::move(reading)), problems_(&problems), depth_(depth) {}

YamlNode YamlNode::fromText(const std::string &text, const std::string &file, Problems &problems) {
    requireText(text, file);
    try {
        const std::vector<YAML::Node> documents = YAML::LoadAll(text);
        if (documents.size() > 1) {
            throw UnusableFile({file, documents[1].Mark().line + 1}, "a file holds one document; here a second begins");
        }
        const YAML::Node root = documents.empty() ? YAML::Node() : documents.front();
        return YamlNode(root, std::make_shared<Reading>(Reading{file}), problems, 0);
    } catch (const YAML::DeepRecursion &error) {
        throw UnusableFile({file, error.mark.line + 1}, "is nested too deeply");
    } catch (const YAML::Exception &error) {
        throw UnusableFile({file, error.mark.line + 1}, "not valid YAML: " + error.msg);
    }
}

YamlNode YamlNode::fromFile(const std::string &path, Problems &problems) {
    return fromText(readWholeFile(path, largestYamlFile), path, problems);
}

YamlNode YamlNode::at(YAML::Node yaml) const {
    if (depth_ == deepestNode) {
        throw UnusableFile(where(), "is nested too deeply, or within itself");
    }
    if (++reading_->nodes > mostNodes) {
        throw UnusableFile(where(), fmt::format("comes to more than {} nodes with all aliases", mostNodes));
    }
    return YamlNode(std::move(yaml), reading_, *problems_, depth_ + 1);
}

void YamlNode::countText(std::size_t units) const {
    reading_->textUnits += units;
    if (reading_->textUnits > mostText) {
        throw UnusableFile(where(), fmt::format("comes to more than {} million characters of text", mostText >> 20));
    }
}

Location YamlNode::where() const {
    return {reading_->file, yaml_.Mark().line + 1};
}

void YamlNode::problem(std::string message) const {
    problems_->add(where(), std::move(message));
}

const char *YamlNode::kind() const {
    if (isScalar()) {
        return "text";
    }
    if (isList()) {
        return "a list";
    }
    return isMap() ? "a map" : "nothing";
}

std::optional<std::string> YamlNode::text(std::string_view what) const {
    if (isScalar()) {
        return yaml_.Scalar();
    }
    problem(fmt::format("{} must be text, found {}", what, kind()));
    return std::nullopt;
}

std::optional<std::uint64_t> YamlNode::number(std::string_view what, std::uint64_t highest) const {
    const auto number = isScalar() ? parseNumber(yaml_.Scalar()) : std::nullopt;
    if (number && *number <= highest) {
        return number;
    }
    problem(fmt::format("{} must be a number from 0 to {}{}", what, highest,
                        isScalar() ? ", found '" + yaml_.Scalar() + "'" : std::string(", found ") + kind()));
    return std::nullopt;
}

std::optional<bool> YamlNode::flag(std::string_view what) const {
    if (isScalar()) {
        const std::string &text = yaml_.Scalar();
        if (text == "true" || text == "yes") {
            return true;
        }
        if (text == "false" || text == "no") {
            return false;
        }
    }
    problem(fmt::format("{} must be true or false", what));
    return std::nullopt;
}

std::optional<std::string> YamlNode::word(std::string_view what, const std::vector<std::string> &words) const {
    const auto found = text(what);
    if (!found || std::find(words.begin(), words.end(), *found) != words.end()) {
        return found;
    }
    problem(fmt::format("{} '{}' is unknown{}; known are {}", what, *found, didYouMean(*found, words),
                        fmt::join(words, ", ")));
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> YamlNode::bytes(std::string_view what) const {
    const auto written = text(what);
    if (!written) {
        return std::nullopt;
    }
    auto bytes = parseHexBytes(*written);
    if (!bytes) {
        problem(fmt::format("{} must be hexadecimal bytes such as '01 fe', found '{}'", what, *written));
    }
    return bytes;
}

std::optional<std::uint64_t> YamlNode::plainNumber() const {
    if (!isScalar() || yaml_.Tag() == "!") {
        return std::nullopt;
    }
    return parseNumber(yaml_.Scalar());
}

std::vector<YamlNode> YamlNode::items() const {
    std::vector<YamlNode> items;
    if (isList()) {
        for (const YAML::Node &item : yaml_) {
            items.push_back(at(item));
        }
    } else if (!isNull()) {
        items.push_back(*this);
    }
    return items;
}

void YamlNode::collectEntries(std::vector<YamlEntry> &into, std::unordered_set<std::string> &known, int depth) const {
    if (depth > deepestMerge) {
        problem("merges too deeply, or into itself");
        return;
    }
    std::unordered_set<std::string> own;
    std::vector<YamlNode> merged;
    for (const auto &pair : yaml_) {
        const YamlNode key = at(pair.first);
        const auto name = key.text("a key");
        if (!name) {
            continue;
        }
        if (*name == "<<") {
            const auto sources = at(pair.second).items();
            merged.insert(merged.end(), sources.begin(), sources.end());
            continue;
        }
        if (!own.insert(*name).second) {
            key.problem(fmt::format("'{}' is given twice", *name));
        } else if (known.insert(*name).second) {
            into.push_back({*name, key, at(pair.second)});
        }
    }
    for (const YamlNode &source : merged) {
        if (source.isMap()) {
            source.collectEntries(into, known, depth + 1);
        } else {
            source.problem("'<<' must name a map");
        }
    }
}

std::vector<YamlEntry> YamlNode::entries() const {
    std::vector<YamlEntry> entries;
    if (isMap()) {
        std::unordered_set<std::string> known;
        collectEntries(entries, known, 0);
    }
    return entries;
}

MapReader::MapReader(const YamlNode &node, std::string what) : node_(node), what_(std::move(what)) {
    if (!node.isMap() && !node.isNull()) {
        node.problem(fmt::format("{} must be a map, found {}", what_, node.kind()));
    }
    entries_ = node.entries();
}

bool MapReader::has(std::string_view key) const {
    return std::any_of(entries_.begin(), entries_.end(), [&](const auto &entry) { return entry.name == key; });
}

std::optional<YamlNode> MapReader::take(std::string_view key) {
    known_.emplace_back(key);
    for (const YamlEntry &entry : entries_) {
        if (entry.name == key) {
            return entry.value;
        }
    }
    return std::nullopt;
}

void MapReader::finish() const {
    for (const YamlEntry &entry : entries_) {
        if (std::find(known_.begin(), known_.end(), entry.name) == known_.end()) {
            const std::string meant = didYouMean(entry.name, known_);
            entry.key.problem(
                fmt::format("unknown key '{}' in {}{}", entry.name, what_,
                            meant.empty() ? fmt::format("; known are {}", fmt::join(known_, ", ")) : meant));
        }
    }
}

} // namespace cli
