#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// The system's unit of time: 100 nanoseconds.
inline constexpr std::int64_t unitsPerSecond = 10'000'000;

/// "2024-03-07 9:05:01.042" (hours with one or two digits, milliseconds and seconds may be left out, "T" for the blank)
/// to units since 1601-01-01. Nothing when the text is no such time or the date does not exist.
std::optional<std::int64_t> parseDateTime(std::string_view text);

/// "250ms", "5s", "2m", "1h" or "3d" in units.
std::optional<std::int64_t> parseDuration(std::string_view text);

/// "+01:00" or "-5:30": local time minus UTC, in units.
std::optional<std::int64_t> parseUtcOffset(std::string_view text);

} // namespace cli
