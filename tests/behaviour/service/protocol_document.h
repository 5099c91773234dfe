#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace behaviour {

/// What docs/service-protocol.md tells the service's author, as far as a program can read it.
namespace document {

/// The rows of the first table behind a line that begins like this; cells without blanks around them and without
/// backticks. Throws when there is none.
std::vector<std::vector<std::string>> tableAfter(std::string_view lineStart);

/// A line of a hex dump that says what its bytes mean.
struct ShownField {
    std::size_t offset = 0;
    std::size_t bytes = 0; ///< that the line itself shows
    std::string meaning;
};

struct HexDump {
    std::vector<std::optional<std::uint8_t>> bytes; ///< nothing where "..", zero where no line shows any
    std::vector<ShownField> fields;
};

/// The dump that is fenced as "hex NAME SIZE". Throws when there is none, or when lines overlap or leave it.
HexDump hexDump(std::string_view name);

/// "0x1A", "1,073" or "404"; nothing for other texts.
std::optional<std::uint32_t> numberOf(std::string text);

} // namespace document
} // namespace behaviour
