#pragma once

#include "play/player.h"
#include "report/terminal.h"

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace cli {

struct PlayArguments {
    std::vector<std::string> paths; ///< scenario files, and folders that are walked for them
    PlayOptions options;
    bool log = false;
    bool json = false;
    bool tables = false; ///< a table for every scenario even when there are many
    bool all = false;    ///< the machine's own devices too
    Style style;
};

/// Plays every scenario and reports. Returns an ExitStatus.
int playAll(const PlayArguments &arguments, std::ostream &out, std::ostream &err);

/// The scenarios that paths stand for: files as given, folders walked for *.yaml in the order of their names, folders
/// named "devices" left out. Throws UnusableFile for a path that is not there or a folder without scenarios.
std::vector<std::string> scenarioFiles(const std::string &path);

} // namespace cli
