#pragma once

#include "problem.h"

#include <yaml-cpp/yaml.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace cli {

struct YamlEntry;

/// A part of a YAML file that knows where it stands and where to report what is wrong with it. Readers report a problem
/// and go on, so that all problems of a file are found in one run.
///
/// Aliases can make a small file endless or enormous: going too deep, to too many nodes or to too much text throws
/// UnusableFile.
class YamlNode {
  public:
    /// Parses a whole file (or text given for it) that holds one document. Throws UnusableFile when it can't be read or
    /// is no YAML.
    static YamlNode fromFile(const std::string &path, Problems &problems);
    static YamlNode fromText(const std::string &text, const std::string &file, Problems &problems);

    Location where() const;
    void problem(std::string message) const;

    bool isNull() const { return yaml_.IsNull(); }
    bool isScalar() const { return yaml_.IsScalar(); }
    bool isList() const { return yaml_.IsSequence(); }
    bool isMap() const { return yaml_.IsMap(); }
    /// "text", "list", "map" or "nothing", for messages.
    const char *kind() const;

    /// The scalar as written; reports "expected WHAT" and gives nothing otherwise.
    std::optional<std::string> text(std::string_view what) const;
    /// An unsigned number (decimal or 0x…) up to `highest`.
    std::optional<std::uint64_t> number(std::string_view what, std::uint64_t highest) const;
    std::optional<bool> flag(std::string_view what) const;
    /// A scalar that is one of the words; reports the others with a suggestion.
    std::optional<std::string> word(std::string_view what, const std::vector<std::string> &words) const;
    /// Hexadecimal bytes, with or without blanks or commas between them.
    std::optional<std::vector<std::uint8_t>> bytes(std::string_view what) const;

    /// A number, when the scalar is written without quotes and looks like one.
    std::optional<std::uint64_t> plainNumber() const;

    /// Items of a list; a single scalar or map counts as a list of one. Null counts as empty.
    std::vector<YamlNode> items() const;
    /// Keys and values of a map in file order, with "<<" merged in; keys given twice are reported.
    std::vector<YamlEntry> entries() const;
    /// Another part of the same file.
    YamlNode at(YAML::Node yaml) const;
    /// Counts text that the file makes longer than it is written.
    void countText(std::size_t units) const;

    const std::string &file() const { return reading_->file; }
    Problems &problems() const { return *problems_; }

  private:
    /// What all nodes of one file share.
    struct Reading {
        std::string file;
        std::size_t nodes = 0;
        std::size_t textUnits = 0;
    };
    YamlNode(YAML::Node yaml, std::shared_ptr<Reading> reading, Problems &problems, int depth);
    void collectEntries(std::vector<YamlEntry> &into, std::unordered_set<std::string> &known, int depth) const;

    YAML::Node yaml_;
    std::shared_ptr<Reading> reading_;
    Problems *problems_;
    int depth_;
};

/// A key of a map, where it stands, and its value.
struct YamlEntry {
    std::string name;
    YamlNode key;
    YamlNode value;
};

/// Reads the keys of a map one by one. Keys that nobody asked for are reported by finish(), with a suggestion.
class MapReader {
  public:
    /// `what` names the map in messages, e.g. "device". Anything but a map is reported and read as an empty one.
    MapReader(const YamlNode &node, std::string what);

    /// The value under `key`; the key counts as known from then on.
    std::optional<YamlNode> take(std::string_view key);
    bool has(std::string_view key) const;
    void finish() const;

    const YamlNode &node() const { return node_; }

  private:
    YamlNode node_;
    std::string what_;
    std::vector<YamlEntry> entries_;
    std::vector<std::string> known_;
};

/// Parses hexadecimal bytes; nothing when the text is something else.
std::optional<std::vector<std::uint8_t>> parseHexBytes(std::string_view text);

/// Parses an unsigned decimal or 0x number; nothing when the text is something else or too large.
std::optional<std::uint64_t> parseNumber(std::string_view text);

} // namespace cli
