#pragma once

#include <iosfwd>

namespace cli {

/// Exit statuses of the command.
enum ExitStatus : int {
    exitHeld = 0,     ///< everything was played and every expectation held
    exitNotMet = 1,   ///< an expectation was not met
    exitUnusable = 2, ///< a file could not be used, or the command line is wrong
};

/// The `myrtelhaven` command: what main() does, for tests and tools too. Results go to `out`, problems with files and
/// with the command line to `err`. Colours and width go by standard output.
int runCommand(int argc, const char *const *argv, std::ostream &out, std::ostream &err);

} // namespace cli
