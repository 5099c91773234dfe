#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The text of a Registry Editor export.
struct RegText {
    bool version4 = false;             ///< REGEDIT4: strings of bytes in the Western code page
    std::vector<std::u16string> lines; ///< without line ends; the first one is the header
};

/// Decodes a file by its byte-order mark and header. Throws UnusableFile when it is no such export.
RegText decodeRegText(std::string_view bytes, const std::string &file);

/// Text in the Western code page (1252); the five codes it leaves open become the control characters of that number.
std::u16string decodeWestern(std::string_view bytes);

} // namespace cli
