#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// The bytes of a file that a person named. Throws UnusableFile when it can't be read, is a folder, or holds more than
/// `most` bytes (devices that never end included).
std::string readWholeFile(const std::string &path, std::uintmax_t most);

/// Where a text stops being UTF-8 that a person can have written: at a malformed sequence, an encoded surrogate, or a
/// control character other than tab and line ends. Nothing when it is all well.
std::optional<std::size_t> firstOddByte(std::string_view text);

} // namespace cli
