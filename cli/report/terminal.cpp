#include "terminal.h"

#include <fmt/format.h>

#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {
namespace {

constexpr std::size_t narrowest = 60; ///< narrower terminals get wrapped by themselves

const char *codeOf(Colour colour) {
    switch (colour) {
    case Colour::bold:
        return "1";
    case Colour::dim:
        return "2";
    case Colour::red:
        return "31";
    case Colour::green:
        return "32";
    case Colour::yellow:
        return "33";
    case Colour::cyan:
        return "36";
    case Colour::plain:
        break;
    }
    return "0";
}

} // namespace

std::string Style::paint(std::string_view text, Colour colour) const {
    if (!colours || colour == Colour::plain) {
        return std::string(text);
    }
    return fmt::format("\x1b[{}m{}\x1b[0m", codeOf(colour), text);
}

Style styleFor(std::FILE *stream, std::string_view when) {
    Style style;
    const bool terminal = isatty(fileno(stream)) != 0;
    const char *noColour = std::getenv("NO_COLOR");
    const bool unwanted = noColour != nullptr && *noColour != '\0';
    style.colours = when == "always" || (when == "auto" && terminal && !unwanted);
    winsize size{};
    if (terminal && ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col >= narrowest) {
        style.width = size.ws_col;
    }
    return style;
}

} // namespace cli
