#pragma once

#include "../scenario/value_parser.h"

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// One thing that a Registry Editor export does when it is imported.
struct RegOperation {
    enum class Kind { makeKey, deleteKey, setValue, deleteValue };
    Kind kind = Kind::makeKey;
    std::u16string key;  ///< kernel path
    std::u16string name; ///< value name; empty for the key's default value
    ValueData value;
    int line = 0;
};

/// Reads a Registry Editor export: version 5 in UTF-16 LE with byte-order mark or UTF-8, or REGEDIT4 in the Western
/// code page (1252), whose hex(1), hex(2) and hex(7) data are text in that code page too. Throws UnusableFile that
/// names every line that can't be read.
std::vector<RegOperation> readRegFile(const std::string &path);

/// The same for the bytes of a file; `file` is named in messages.
std::vector<RegOperation> parseRegFile(std::string_view bytes, const std::string &file);

} // namespace cli
