#include "rule_lists.h"

#include "simulator/kernel/strings.h"

#include <ntifs.h>

#include <cstring>

namespace fuzz {

namespace {

constexpr std::size_t mostBytes = 0xFFFF;
constexpr std::u16string_view usualClasses = u"Class_e0 Class_ff Class_0b Class_06 Class_08 MS_COMP_MTP MS_COMP_PTP";

/// False when the rule with its wildcard can't be counted any more.
bool put(RuleTexts &rules, std::u16string rule, bool anySerial) {
    if (anySerial && rule.find(u'\\') == std::u16string::npos) {
        rule += u"\\*";
        if (2 * rule.size() > mostBytes) {
            return false;
        }
    }
    rules.insert(sim::upcase(std::u16string_view(rule)));
    return true;
}

bool putWords(RuleTexts &rules, std::u16string_view text, bool anySerial) {
    for (;;) {
        const std::size_t end = text.find(u' ');
        const std::u16string_view word = text.substr(0, end);
        const std::u16string_view rule = word.substr(0, word.find(u'\0'));
        if (2 * word.size() <= mostBytes && !rule.empty() && !put(rules, std::u16string(rule), anySerial)) {
            return false;
        }
        if (end == std::u16string_view::npos) {
            return true;
        }
        text.remove_prefix(end + 1);
    }
}

/// False when neither form of list could be read to its end.
bool read(RuleTexts &rules, const std::optional<RawValue> &value, std::u16string_view whenEmpty, bool anySerial) {
    if (!value) {
        return false;
    }
    if (value->type == REG_MULTI_SZ) {
        const bool empty = value->data.empty() || value->data == std::vector<std::uint8_t>{0, 0};
        const auto strings = stringsOf(*value);
        if (!strings) {
            return empty;
        }
        for (const std::u16string &rule : *strings) {
            if (!put(rules, rule, true)) {
                return false;
            }
        }
        return true;
    }
    if (value->type != REG_SZ) {
        return false;
    }
    const std::u16string text = textOf(value->data);
    return putWords(rules, text.empty() ? whenEmpty : text, anySerial);
}

} // namespace

std::u16string textOf(const std::vector<std::uint8_t> &bytes) {
    std::u16string text(bytes.size() / 2, u'\0');
    if (!text.empty()) {
        std::memcpy(text.data(), bytes.data(), 2 * text.size());
    }
    return text;
}

std::optional<std::vector<std::u16string>> stringsOf(const RawValue &value) {
    const std::u16string text = textOf(value.data);
    if (value.type != REG_MULTI_SZ || value.data.size() % 2 != 0 || !text.ends_with(std::u16string_view(u"\0\0", 2))) {
        return std::nullopt;
    }
    std::vector<std::u16string> strings;
    for (std::size_t at = 0; text[at] != 0;) {
        const std::u16string one(text.c_str() + at);
        at += one.size() + 1;
        strings.push_back(one.substr(0, 32'766)); // a string object holds no more
    }
    return strings;
}

RuleLists rulesOf(const PolicyValues &values) {
    RuleLists lists;
    if (read(lists.blocked, values.blocked, usualClasses, false)) {
        read(lists.allowed, values.allowed, {}, true);
        read(lists.readOnly, values.readOnly, {}, true);
    }
    return lists;
}

std::uint32_t numberOf(const std::optional<RawValue> &value, std::uint32_t otherwise) {
    if (!value || value->type != REG_DWORD || value->data.size() != 4) {
        return otherwise;
    }
    std::uint32_t number = 0;
    std::memcpy(&number, value->data.data(), 4);
    return number;
}

} // namespace fuzz
