#pragma once

#include "cli/scenario/problem.h"
#include "require.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace fuzz {

/// A file that is refused is refused with a word that a person can read, at a line that the file has.
inline void requireTold(const cli::UnusableFile &unusable, std::string_view bytes, std::string_view file) {
    require(!unusable.problems().empty(), "a refused file has a problem");
    const auto lines = 1 + std::count(bytes.begin(), bytes.end(), '\n') + std::count(bytes.begin(), bytes.end(), '\r');
    for (const cli::Problem &problem : unusable.problems()) {
        require(!problem.message.empty(), "a problem is told");
        require(problem.where.file != file || (problem.where.line >= 0 && problem.where.line <= lines),
                "line " + std::to_string(problem.where.line) + " is in the file: " + problem.text());
        const std::string shown = problem.text();
        require(
            std::none_of(shown.begin(), shown.end(), [](char unit) { return static_cast<unsigned char>(unit) < 0x20; }),
            "no control character reaches the terminal: " + shown);
    }
}

} // namespace fuzz
