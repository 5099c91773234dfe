#pragma once

#include "../../simulator/kernel/files.h"
#include "../facts/device_outcome.h"

#include <map>
#include <string>
#include <vector>

namespace cli {

/// Splits "2024-03-07 9:05:01.042 INFO Driver start" into time, level and text. A line without such a header has only
/// text.
LogLine parseLogLine(std::string_view line);

/// Lines of a text whose lines end in CR LF; a rest without line end is a line too.
std::vector<std::string> splitLogLines(std::string_view text);

/// Follows the driver's log files: says which lines were written since it last looked.
class LogWatch {
  public:
    explicit LogWatch(const sim::FileSystem &files) : files_(files) {}

    /// Takes what the files hold now as known (files that a scenario put there).
    void skipPresent();
    /// A driver is about to be loaded: it begins with a new file, which may take the name of one that is there.
    void newRun();
    /// Lines that the files gained, files in the order of their names.
    std::vector<LogLine> take();

  private:
    struct Known {
        std::size_t size = 0;
        std::string beginning;     ///< to notice a file that was overwritten
        bool ofEarlierRun = false; ///< the first write to it overwrites it
    };
    std::string gained(const std::string &name);

    const sim::FileSystem &files_;
    std::map<std::string, Known> known_;
};

} // namespace cli
