#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace cli {

struct FaultArguments {
    std::vector<std::string> paths; ///< scenario files, and folders that are walked for them
    std::filesystem::path driver;   ///< native driver module; empty: the one beside the command
    std::uint64_t atMost = 0;       ///< of a scenario's calls so many fail, spread evenly; 0: all
};

/// Plays each scenario once for each platform call that can fail, with that call failing, and once more with everything
/// after it failing too; says what went wrong and how many calls were reached. Expectations are not looked at in these
/// runs; faultProblems() tells what is. Returns an ExitStatus.
int playWithFaults(const FaultArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace cli
