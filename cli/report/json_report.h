#pragma once

#include "../play/play_result.h"

#include <nlohmann/json.hpp>

namespace cli {

/// What playing one scenario showed, for programs: every device add with what the driver decided, and every step with
/// what it wrote and which expectations were not met.
nlohmann::ordered_json jsonOf(const PlayResult &result);

/// The same for a file that could not be used.
nlohmann::ordered_json jsonOf(const std::string &file, const UnusableFile &unusable);

} // namespace cli
