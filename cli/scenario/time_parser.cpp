#include "time_parser.h"

#include <charconv>
#include <chrono>

namespace cli {
namespace {

/// Takes numbers and separators from the front of a text.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool atEnd() const { return text_.empty(); }

    bool takeOneOf(std::string_view characters) {
        if (text_.empty() || characters.find(text_.front()) == std::string_view::npos) {
            return false;
        }
        text_.remove_prefix(1);
        return true;
    }

    /// A number of `fewest` to `most` digits up to `highest`.
    std::optional<int> takeNumber(std::size_t fewest, std::size_t most, int highest) {
        std::size_t digits = 0;
        while (digits < text_.size() && digits < most && text_[digits] >= '0' && text_[digits] <= '9') {
            ++digits;
        }
        int number = 0;
        if (digits < fewest || std::from_chars(text_.data(), text_.data() + digits, number).ec != std::errc()) {
            return std::nullopt;
        }
        text_.remove_prefix(digits);
        return number <= highest ? std::optional(number) : std::nullopt;
    }

  private:
    std::string_view text_;
};

std::int64_t unitsSince1601(std::chrono::sys_days day) {
    using namespace std::chrono;
    constexpr sys_days epoch{year{1601} / January / 1};
    return (day - epoch).count() * 86'400 * unitsPerSecond;
}

std::optional<std::int64_t> takeTimeOfDay(Scanner &scanner) {
    const auto hour = scanner.takeNumber(1, 2, 23);
    if (!hour || !scanner.takeOneOf(":")) {
        return std::nullopt;
    }
    const auto minute = scanner.takeNumber(2, 2, 59);
    if (!minute) {
        return std::nullopt;
    }
    int second = 0;
    int millisecond = 0;
    if (scanner.takeOneOf(":")) {
        const auto seconds = scanner.takeNumber(2, 2, 59);
        if (!seconds) {
            return std::nullopt;
        }
        second = *seconds;
        if (scanner.takeOneOf(".")) {
            const auto milliseconds = scanner.takeNumber(3, 3, 999);
            if (!milliseconds) {
                return std::nullopt;
            }
            millisecond = *milliseconds;
        }
    }
    if (!scanner.atEnd()) {
        return std::nullopt;
    }
    return (std::int64_t{*hour} * 3600 + *minute * 60 + second) * unitsPerSecond + std::int64_t{millisecond} * 10'000;
}

} // namespace

std::optional<std::int64_t> parseDateTime(std::string_view text) {
    using namespace std::chrono;
    Scanner scanner(text);
    const auto yearNumber = scanner.takeNumber(4, 4, 9999);
    if (!yearNumber || !scanner.takeOneOf("-")) {
        return std::nullopt;
    }
    const auto monthNumber = scanner.takeNumber(1, 2, 12);
    if (!monthNumber || !scanner.takeOneOf("-")) {
        return std::nullopt;
    }
    const auto dayNumber = scanner.takeNumber(1, 2, 31);
    if (!dayNumber || !scanner.takeOneOf(" T")) {
        return std::nullopt;
    }
    const year_month_day date{year{*yearNumber}, month{static_cast<unsigned>(*monthNumber)},
                              day{static_cast<unsigned>(*dayNumber)}};
    if (!date.ok() || *yearNumber < 1601) {
        return std::nullopt;
    }
    const auto time = takeTimeOfDay(scanner);
    return time ? std::optional(unitsSince1601(sys_days{date}) + *time) : std::nullopt;
}

std::optional<std::int64_t> parseDuration(std::string_view text) {
    struct Unit {
        std::string_view name;
        std::int64_t units;
    };
    constexpr Unit units[] = {{"ms", 10'000},
                              {"s", unitsPerSecond},
                              {"m", 60 * unitsPerSecond},
                              {"h", 3600 * unitsPerSecond},
                              {"d", 86'400 * unitsPerSecond}};
    Scanner scanner(text);
    const auto number = scanner.takeNumber(1, 9, 999'999'999);
    if (!number) {
        return std::nullopt;
    }
    const std::string_view rest = text.substr(text.find_first_not_of("0123456789") == std::string_view::npos
                                                  ? text.size()
                                                  : text.find_first_not_of("0123456789"));
    for (const Unit &unit : units) {
        if (rest == unit.name) {
            return *number <= INT64_MAX / unit.units ? std::optional(*number * unit.units) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<std::int64_t> parseUtcOffset(std::string_view text) {
    Scanner scanner(text);
    const bool negative = text.starts_with('-');
    if (!scanner.takeOneOf("+-")) {
        return std::nullopt;
    }
    const auto hours = scanner.takeNumber(1, 2, 14);
    if (!hours || !scanner.takeOneOf(":")) {
        return std::nullopt;
    }
    const auto minutes = scanner.takeNumber(2, 2, 59);
    if (!minutes || !scanner.atEnd()) {
        return std::nullopt;
    }
    const std::int64_t units = (std::int64_t{*hours} * 60 + *minutes) * 60 * unitsPerSecond;
    return negative ? -units : units;
}

} // namespace cli
