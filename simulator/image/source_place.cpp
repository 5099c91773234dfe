#include "source_place.h"

#include "../kernel/code_address.h"
#include "../kernel/violation.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
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

/// The first of the frames that the symbolizer prints: a line with the function, a line with file:line:column.
SourcePlace parse(const std::string &output) {
    const std::size_t firstEnd = output.find('\n');
    const std::size_t secondEnd = output.find('\n', firstEnd + 1);
    SourcePlace place;
    if (firstEnd == std::string::npos || secondEnd == std::string::npos || output.starts_with("??")) {
        return place;
    }
    place.function = withoutParameters(output.substr(0, firstEnd));
    const std::string where = output.substr(firstEnd + 1, secondEnd - firstEnd - 1);
    const std::size_t column = where.rfind(':');
    const std::size_t line = column == std::string::npos ? column : where.rfind(':', column - 1);
    if (line != std::string::npos && !where.starts_with("??")) {
        place.file = where.substr(where.find_first_not_of('/'), line - where.find_first_not_of('/'));
        place.line = static_cast<unsigned>(std::strtoul(where.c_str() + line + 1, nullptr, 10));
    }
    return place;
}

SourcePlace lookUp(const std::filesystem::path &image, std::uint32_t address) {
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

SourcePlace placeInSource(const std::filesystem::path &image, std::uint32_t address) {
    static std::mutex mutex;
    static auto &known = *new std::map<std::pair<std::string, std::uint32_t>, SourcePlace>; // outlives everybody
    const std::lock_guard lock(mutex);
    const auto [entry, isNew] = known.try_emplace({image.string(), address});
    if (isNew) {
        entry->second = lookUp(image, address);
    }
    return entry->second;
}

} // namespace sim::image
