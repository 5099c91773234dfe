#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace cli {

enum class Colour { plain, bold, dim, red, green, yellow, cyan };

/// How output is to look.
struct Style {
    bool colours = false;
    std::size_t width = 0; ///< columns to fit into; 0: lines are never wrapped

    std::string paint(std::string_view text, Colour colour) const;
};

/// Colours and width for a stream: colours only on a terminal and unless NO_COLOR is set. `when` is "auto", "always" or
/// "never".
Style styleFor(std::FILE *stream, std::string_view when);

} // namespace cli
