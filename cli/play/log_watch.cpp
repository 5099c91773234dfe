#include "log_watch.h"

#include "../text/display.h"

#include <algorithm>
#include <chrono>
#include <fstream>

namespace cli {
namespace {

constexpr std::string_view logPrefix = "com.tarvenholt.myrtelhaven-driver-";
constexpr std::size_t rememberedBeginning = 128;

/// Given to files of earlier runs, so that any write to one of them shows: the time of a write may be coarse.
const std::filesystem::file_time_type untouched{std::chrono::hours(1)};

constexpr std::string_view levels[] = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "VERB", "NONE", "UNKNOWN"};

bool looksLikeTime(std::string_view date, std::string_view time) {
    const auto allOf = [](std::string_view text, std::string_view characters) {
        return text.find_first_not_of(characters) == std::string_view::npos;
    };
    return date.size() >= 8 && time.size() >= 11 && allOf(date, "0123456789-") && allOf(time, "0123456789:.");
}

} // namespace

LogLine parseLogLine(std::string_view line) {
    const std::size_t dateEnd = line.find(' ');
    const std::size_t timeEnd = dateEnd == std::string_view::npos ? dateEnd : line.find(' ', dateEnd + 1);
    const std::size_t levelEnd = timeEnd == std::string_view::npos ? timeEnd : line.find(' ', timeEnd + 1);
    if (levelEnd != std::string_view::npos) {
        const std::string_view level = line.substr(timeEnd + 1, levelEnd - timeEnd - 1);
        if (looksLikeTime(line.substr(0, dateEnd), line.substr(dateEnd + 1, timeEnd - dateEnd - 1)) &&
            std::find(std::begin(levels), std::end(levels), level) != std::end(levels)) {
            return {std::string(line.substr(0, timeEnd)), std::string(level), visibleText(line.substr(levelEnd + 1))};
        }
    }
    return {{}, {}, visibleText(line)};
}

std::vector<std::string> splitLogLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find("\r\n");
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    }
    return lines;
}

std::string LogWatch::gained(const std::string &name) {
    const auto path = files_.systemRoot() / "Temp" / name;
    std::ifstream stream(path, std::ios::binary | std::ios::ate);
    if (!stream) {
        return {};
    }
    const auto size = static_cast<std::size_t>(stream.tellg());
    Known &known = known_[name];
    bool overwritten = false;
    if (known.ofEarlierRun) {
        if (std::filesystem::last_write_time(path) == untouched) {
            return {};
        }
        overwritten = true;
        known.ofEarlierRun = false;
    }
    std::string beginning(std::min(size, std::max(known.beginning.size(), std::size_t{1})), '\0');
    stream.seekg(0);
    stream.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
    overwritten =
        overwritten || size < known.size || beginning.compare(0, known.beginning.size(), known.beginning) != 0;
    const std::size_t from = overwritten ? 0 : known.size;
    std::string bytes(size - from, '\0');
    stream.seekg(static_cast<std::streamoff>(from));
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (overwritten) {
        known.beginning.clear();
    }
    if (known.beginning.size() < rememberedBeginning && from <= known.beginning.size()) {
        known.beginning = (known.beginning.substr(0, from) + bytes).substr(0, rememberedBeginning);
    }
    known.size = size;
    return bytes;
}

void LogWatch::skipPresent() {
    for (const std::string &name : files_.tempFiles()) {
        if (name.starts_with(logPrefix)) {
            gained(name);
        }
    }
}

void LogWatch::newRun() {
    for (const std::string &name : files_.tempFiles()) {
        if (name.starts_with(logPrefix)) {
            std::filesystem::last_write_time(files_.systemRoot() / "Temp" / name, untouched);
            known_[name].ofEarlierRun = true;
        }
    }
}

std::vector<LogLine> LogWatch::take() {
    std::vector<LogLine> lines;
    for (const std::string &name : files_.tempFiles()) {
        if (!name.starts_with(logPrefix)) {
            continue;
        }
        for (const std::string &line : splitLogLines(gained(name))) {
            lines.push_back(parseLogLine(line));
        }
    }
    return lines;
}

} // namespace cli
