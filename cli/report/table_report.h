#pragma once

#include "../play/play_result.h"
#include "terminal.h"

#include <string>

namespace cli {

/// One line per device: decision, what was enforced and why. `all` adds the machine's own devices.
std::string deviceTable(const PlayResult &result, const Style &style, bool all);

/// "held" or the expectations that were not met, with place, expected and found.
std::string problemList(const PlayResult &result, const Style &style);

/// Headline of one scenario: name, file, number of devices and expectations.
std::string headline(const PlayResult &result, const Style &style);

/// One line for a scenario among many.
std::string summaryLine(const PlayResult &result, const Style &style);

/// The log lines of each step, level and text.
std::string logReport(const PlayResult &result, const Style &style);

} // namespace cli
