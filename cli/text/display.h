#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Text that may hold control characters, made visible: NUL becomes U+2400, other control characters their pictures
/// too. Expected and found texts are compared in this form, so that a person can write and read them.
std::string visibleText(std::string_view text);
std::string visibleText(std::u16string_view text);

/// A long text with its middle left out: "AAAA… (32767 characters)". Texts of up to `most` columns stay as they are.
std::string clipped(const std::string &text, std::size_t most = 400);

/// Lower-case hexadecimal digits, two per byte, with `separator` between bytes.
std::string hexText(const std::vector<std::uint8_t> &bytes, std::string_view separator = "");

/// Columns that UTF-8 text takes in a terminal (one per code point; wide scripts are not told apart).
std::size_t displayWidth(std::string_view text);

/// Splits text at blanks, backslashes and ampersands into lines of at most `width` columns (at least one character).
std::vector<std::string> wrapText(std::string_view text, std::size_t width);

} // namespace cli
