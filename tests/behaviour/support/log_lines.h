#pragma once

#include "tests/behaviour/support/driver_test.h"

/// The lines that the driver's log is to show, block by block.
namespace behaviour::lines {

/// An id list as a line shows it, its NULs included.
std::string list(const std::vector<std::u16string> &ids);
std::string utf8(std::u16string_view text);

/// Puts blocks one after another.
template<typename... Blocks>
Lines all(const Blocks &...blocks) {
    Lines lines;
    (lines.insert(lines.end(), blocks.begin(), blocks.end()), ...);
    return lines;
}

/// The driver's own lines of the begin of every add.
Lines asked(const std::vector<std::u16string> &hardwareIds);
/// The same for a device that gets a USB filter.
Lines created(const std::vector<std::u16string> &hardwareIds);
/// The look for a hub driver; `drivers` are the names looked at.
Lines searched(const std::vector<std::string> &drivers);
/// One reading of the rule lists.
Lines reload(const Policy &policy);
/// The question to the rules: a reading of the lists, then one match or, when it fails, two.
Lines judged(const Policy &policy, const std::vector<std::u16string> &hardwareIds, std::u16string_view serial,
             bool allowed, bool readOnly = false);
Lines notFilterable();
Lines blocked(const std::vector<std::u16string> &hardwareIds);
Lines removedFromRegister(const std::vector<std::u16string> &hardwareIds);
Lines notified(int mode, int ruleType, std::u16string_view deviceName);

} // namespace behaviour::lines
