#include "source_place.h"

#include "../kernel/code_address.h"
#include "../kernel/violation.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <utility>

namespace sim::image {

namespace {

/// In single quotes for the shell.
std::string quoted(const std::string &text) {
    std::string result = "'";
    for (const char letter : text) {
        result += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return result + "'";
}

std::string outputOf(const std::string &command) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> pipe(popen(command.c_str(), "r"), &pclose);
    std::string output;
    char part[256];
    while (pipe != nullptr && std::fgets(part, sizeof part, pipe.get()) != nullptr) {
        output += part;
    }
    return output;
}

/// A function and "file:line:column", as the symbolizer prints them on two lines.
SourcePlace placeOf(const std::string &function, const std::string &where) {
    SourcePlace place{withoutParameters(function), {}, 0};
    const std::size_t column = where.rfind(':');
    const std::size_t line = column == std::string::npos ? column : where.rfind(':', column - 1);
    if (line != std::string::npos && !where.starts_with("??")) {
        const std::size_t start = where.find_first_not_of('/');
        place.file = where.substr(start, line - start);
        place.line = static_cast<unsigned>(std::strtoul(where.c_str() + line + 1, nullptr, 10));
    }
    return place;
}

std::vector<SourcePlace> parse(const std::string &output) {
    std::vector<SourcePlace> places;
    std::istringstream lines(output);
    std::string function;
    std::string where;
    while (std::getline(lines, function) && std::getline(lines, where) && !function.starts_with("??")) {
        places.push_back(placeOf(function, where));
    }
    return places;
}

std::vector<SourcePlace> lookUp(const std::filesystem::path &image, std::uint32_t address) {
    for (const char *tool : {"llvm-symbolizer-19", "llvm-symbolizer"}) {
        const std::string output = outputOf(std::string(tool) + " --relative-address --obj=" + quoted(image.string()) +
                                            " " + hex(address) + " 2>/dev/null");
        if (!output.empty()) {
            return parse(output);
        }
    }
    return {};
}

} // namespace

std::vector<SourcePlace> placesInSource(const std::filesystem::path &image, std::uint32_t address) {
    static std::mutex mutex;
    static auto &known =
        *new std::map<std::pair<std::string, std::uint32_t>, std::vector<SourcePlace>>; // outlives everybody
    const std::lock_guard lock(mutex);
    const auto [entry, isNew] = known.try_emplace({image.string(), address});
    if (isNew) {
        entry->second = lookUp(image, address);
    }
    return entry->second;
}

} // namespace sim::image
