#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

// What the registry says, told a second time and independently of the driver.

namespace fuzz {

struct RawValue {
    std::uint32_t type = 0;
    std::vector<std::uint8_t> data;
};

/// The values of the Parameters key that decide.
struct PolicyValues {
    std::optional<RawValue> blocked;
    std::optional<RawValue> allowed;
    std::optional<RawValue> readOnly;
};

/// Upper-case patterns.
using RuleTexts = std::set<std::u16string>;

struct RuleLists {
    RuleTexts blocked;
    RuleTexts allowed;
    RuleTexts readOnly;
    std::size_t count() const { return blocked.size() + allowed.size() + readOnly.size(); }
};

RuleLists rulesOf(const PolicyValues &values);

/// Strings of a REG_MULTI_SZ as the framework gives them; nothing when it gives none for this type and data.
std::optional<std::vector<std::u16string>> stringsOf(const RawValue &value);

/// A REG_DWORD of four bytes; otherwise the default.
std::uint32_t numberOf(const std::optional<RawValue> &value, std::uint32_t otherwise);

/// Two bytes a unit; an odd last byte does not count.
std::u16string textOf(const std::vector<std::uint8_t> &bytes);

} // namespace fuzz
