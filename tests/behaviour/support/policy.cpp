#include "policy.h"

#include "driver_test.h"

namespace behaviour {

std::vector<std::uint8_t> RuleList::registryData() const {
    if (form == Form::text) {
        return bytesOf(text + u'\0');
    }
    std::u16string list;
    for (const std::u16string &rule : strings) {
        list += rule + u'\0';
    }
    if (list.empty()) {
        list += u'\0';
    }
    return bytesOf(list + u'\0');
}

std::vector<std::u16string> RuleList::rules() const {
    if (form != Form::text) {
        return strings;
    }
    std::vector<std::u16string> rules;
    std::u16string rule;
    for (const char16_t unit : text + u' ') {
        if (unit != u' ') {
            rule += unit;
        } else if (!rule.empty()) {
            rules.push_back(std::exchange(rule, {}));
        }
    }
    return rules;
}

RuleList asStrings(std::vector<std::u16string> rules) {
    return {RuleList::Form::strings, std::move(rules), {}};
}

RuleList asText(std::u16string text) {
    return {RuleList::Form::text, {}, std::move(text)};
}

Policy allowing(std::vector<std::u16string> rules) {
    Policy policy;
    policy.allowed = asStrings(std::move(rules));
    return policy;
}

Policy readOnly(std::vector<std::u16string> rules) {
    Policy policy;
    policy.readOnly = asStrings(std::move(rules));
    return policy;
}

} // namespace behaviour
