#include "decision.h"

#include "simulator/kernel/strings.h"

#include <algorithm>

namespace fuzz {

namespace {

constexpr std::uint32_t blocked = 1;
constexpr std::uint32_t allowed = 2;
constexpr std::uint32_t readOnly = 3;

bool isFilterable(const RuleTexts &rules, std::u16string_view compatibleIds) {
    for (const std::u16string &whole : idsOf(compatibleIds)) {
        const std::u16string_view id = withoutBus(whole);
        if (rules.contains(sim::upcase(id)) ||
            std::any_of(rules.begin(), rules.end(), [&](const auto &rule) { return matchesPattern(rule, id); })) {
            return true;
        }
    }
    return false;
}

bool isListed(const RuleTexts &rules, const DeviceFacts &device) {
    for (const std::u16string &whole : idsOf(device.hardwareIds)) {
        const std::u16string full = std::u16string(withoutBus(whole)) + u"\\" + device.serial;
        if (2 * full.size() > 0xFFFF) {
            return false; // no text can be made of it: the match ends
        }
        const std::u16string upper = sim::upcase(std::u16string_view(full));
        if (std::any_of(rules.begin(), rules.end(), [&](const auto &rule) { return matchesPattern(rule, upper); })) {
            return true;
        }
    }
    return false;
}

bool hasId(std::u16string_view list, std::u16string_view wanted) {
    const std::vector<std::u16string> ids = idsOf(list);
    return std::any_of(ids.begin(), ids.end(), [&](const auto &id) { return withoutBus(id) == wanted; });
}

std::uint32_t modeOf(const RuleLists &rules, const CallbackSettings &settings, const DeviceFacts &device) {
    if (settings.mode == 2) {
        return settings.fallbackAction == 1 ? readOnly : blocked;
    }
    return isListed(rules.allowed, device) ? allowed : isListed(rules.readOnly, device) ? readOnly : blocked;
}

} // namespace

std::vector<std::u16string> idsOf(std::u16string_view list) {
    std::vector<std::u16string> ids;
    for (;;) {
        const std::size_t end = list.find(u'\0');
        ids.emplace_back(list.substr(0, end));
        if (end == std::u16string_view::npos) {
            return ids;
        }
        list.remove_prefix(end + 1);
    }
}

std::u16string_view withoutBus(std::u16string_view id) {
    const std::size_t mark = id.find(u'\\');
    return mark == std::u16string_view::npos || mark == 0 ? id : id.substr(mark + 1);
}

bool matchesPattern(std::u16string_view pattern, std::u16string_view text) {
    if (pattern.find_first_of(u"<>\"") != std::u16string_view::npos) {
        return sim::nameMatches(pattern, text); // the wildcards of old file names are the system's business
    }
    if (pattern.empty() || text.empty()) {
        return pattern.empty() && text.empty();
    }
    // The latest star takes one unit more each time that what follows it does not fit.
    std::size_t at = 0;
    std::size_t behindStar = std::u16string_view::npos;
    std::size_t retry = 0;
    for (std::size_t unit = 0; unit < text.size();) {
        if (at < pattern.size() && pattern[at] == u'*') {
            behindStar = ++at;
            retry = unit;
        } else if (at < pattern.size() && (pattern[at] == u'?' || pattern[at] == text[unit])) {
            ++at;
            ++unit;
        } else if (behindStar != std::u16string_view::npos) {
            at = behindStar;
            unit = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(u'*', at) == std::u16string_view::npos;
}

Decision decide(const RuleLists &rules, const CallbackSettings &settings, const DeviceFacts &device) {
    Decision decision;
    if (device.compositeParent || !isFilterable(rules.blocked, device.compatibleIds)) {
        return {0, allowed, 1, false};
    }
    decision.filterable = 1;
    decision.mode = modeOf(rules, settings, device);
    decision.ruleType = decision.mode == blocked ? 3 : decision.mode == allowed ? 2 : 4;
    if (decision.mode != readOnly) {
        return decision;
    }
    if (rules.readOnly.size() == 1 && rules.readOnly.begin()->starts_with(u'*')) {
        decision.ruleType = 5;
    }
    const std::u16string_view ids = device.compatibleIds;
    decision.denyWriting = hasId(ids, u"MS_COMP_MTP") || hasId(ids, u"MS_COMP_PTP") ||
                           (hasId(ids, u"Class_06&SubClass_01&Prot_01") && device.portableClass);
    if (!decision.denyWriting && !hasId(ids, u"Class_08")) {
        decision.mode = blocked; // nothing else can be made read-only
    }
    return decision;
}

} // namespace fuzz
