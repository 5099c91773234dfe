#pragma once

#include <ntifs.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using SidBytes = std::vector<std::uint8_t>;

/// "S-1-5-18" to bytes; nothing when the text is no SID.
std::optional<SidBytes> sidFromText(std::string_view text);
std::string sidText(const SID *sid);
std::size_t sidBytes(const SID *sid); ///< length in bytes

/// The two letters that SDDL has for a SID ("SY"), empty when it has none; and back.
std::string_view sidAlias(std::string_view sid);
std::string_view sidOfAlias(std::string_view alias);

} // namespace sim
