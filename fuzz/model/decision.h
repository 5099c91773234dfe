#pragma once

#include "rule_lists.h"

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// What is known of a USB device when it is judged. Lists are joined with NULs, without those at their end.
struct DeviceFacts {
    std::u16string hardwareIds;
    std::u16string compatibleIds;
    std::u16string serial;
    bool compositeParent = false;
    bool portableClass = false; ///< of setup class WPD
};

struct CallbackSettings {
    std::uint32_t mode = 0;
    std::uint32_t fallbackAction = 0;
};

struct Decision {
    std::uint32_t filterable = 0;
    std::uint32_t mode = 0;     ///< 1 blocked, 2 allowed, 3 read-only
    std::uint32_t ruleType = 0; ///< 1 not filterable, 2 allowed, 3 blocked, 4 read-only, 5 read-only unlisted
    bool denyWriting = false;
};

/// The decision while no service is registered.
Decision decide(const RuleLists &rules, const CallbackSettings &settings, const DeviceFacts &device);

/// The strings of a joined list; one empty string for an empty list.
std::vector<std::u16string> idsOf(std::u16string_view list);
/// An id behind its bus name and backslash.
std::u16string_view withoutBus(std::u16string_view id);
/// Whether the whole text matches; units are compared as they are.
bool matchesPattern(std::u16string_view pattern, std::u16string_view text);

} // namespace fuzz
