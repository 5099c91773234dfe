#pragma once

#include <ntifs.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace behaviour {

/// One rule list as the registry holds it.
struct RuleList {
    enum class Form { absent, strings, text };
    Form form = Form::absent;
    std::vector<std::u16string> strings; ///< REG_MULTI_SZ
    std::u16string text;                 ///< REG_SZ, stored with its NUL

    std::uint32_t registryType() const { return form == Form::strings ? REG_MULTI_SZ : REG_SZ; }
    std::vector<std::uint8_t> registryData() const;
    /// The rules in the order in which they are read.
    std::vector<std::u16string> rules() const;
};

RuleList asStrings(std::vector<std::u16string> rules);
RuleList asText(std::u16string text);

/// The built-in list of what is filtered, which an administrator may also write out.
inline constexpr const char16_t *usualBlockedIds =
    u"Class_e0 Class_ff Class_0b Class_06 Class_08 MS_COMP_MTP MS_COMP_PTP";

/// The three rule lists. Unless told otherwise the usual classes are filtered and nothing is listed.
struct Policy {
    RuleList blocked = asText(usualBlockedIds);
    RuleList allowed = asStrings({});
    RuleList readOnly = asStrings({});

    std::array<std::pair<const char16_t *, const RuleList *>, 3> values() const {
        return {{{u"BlockedCompatibleIds", &blocked},
                 {u"AllowedHardwareIds", &allowed},
                 {u"ReadOnlyHardwareIds", &readOnly}}};
    }
};

Policy allowing(std::vector<std::u16string> rules);
Policy readOnly(std::vector<std::u16string> rules);

} // namespace behaviour
