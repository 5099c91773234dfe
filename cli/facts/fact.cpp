#include "fact.h"

#include "../text/display.h"
#include "../text/status_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {
namespace {

constexpr std::size_t mostListed = 40; ///< a whole log is better looked at with --log

std::string quoted(const std::string &text) {
    return "'" + clipped(text) + "'";
}

std::string describeTexts(const Texts &texts) {
    if (texts.empty()) {
        return "none";
    }
    if (texts.size() == 1) {
        return quoted(texts.front());
    }
    std::string list = fmt::format("{} entries:", texts.size());
    for (std::size_t i = 0; i < texts.size() && i < mostListed; ++i) {
        list += "\n  " + clipped(texts[i]);
    }
    if (texts.size() > mostListed) {
        list += "\n  …";
    }
    return list;
}

struct Describer {
    std::string operator()(const Absent &) const { return "none"; }
    std::string operator()(const std::string &text) const { return quoted(text); }
    std::string operator()(std::uint64_t number) const {
        return number < 10 ? fmt::format("{}", number) : fmt::format("{} (0x{:x})", number, number);
    }
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(const StatusFact &fact) const { return describeStatus(fact.status); }
    std::string operator()(const Texts &texts) const { return describeTexts(texts); }
};

bool holds(const Texts &texts, const std::string &text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool mentioned(const Texts &texts, const std::string &part) {
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string &text) { return text.find(part) != std::string::npos; });
}

/// The first of `wanted` that is not found after the one before it.
const std::string *firstMissingInOrder(const Texts &texts, const Texts &wanted) {
    auto from = texts.begin();
    for (const std::string &text : wanted) {
        const auto found = std::find(from, texts.end(), text);
        if (found == texts.end()) {
            return &text;
        }
        from = found + 1;
    }
    return nullptr;
}

/// Says where two lists begin to differ, since whole logs are long.
Mismatch listMismatch(const Texts &expected, const Texts &found) {
    std::size_t same = 0;
    while (same < expected.size() && same < found.size() && expected[same] == found[same]) {
        ++same;
    }
    if (same == 0 && (expected.size() < 2 || found.size() < 2)) {
        return {describeTexts(expected), describeTexts(found)};
    }
    const auto entry = [&](const Texts &texts) {
        return same < texts.size() ? quoted(texts[same]) : std::string("no further entry");
    };
    return {fmt::format("{} entries, of which number {} is {}", expected.size(), same + 1, entry(expected)),
            fmt::format("{} entries, of which number {} is {}", found.size(), same + 1, entry(found))};
}

std::optional<Mismatch> compareTexts(const TextConditions &conditions, const Texts &found) {
    if (conditions.exactly && *conditions.exactly != found) {
        return listMismatch(*conditions.exactly, found);
    }
    if (const std::string *missing = firstMissingInOrder(found, conditions.contains)) {
        return Mismatch{(holds(found, *missing) ? "in this order: " : "to contain ") + quoted(*missing),
                        describeTexts(found)};
    }
    for (const std::string &text : conditions.excludes) {
        if (holds(found, text)) {
            return Mismatch{"not to contain " + quoted(text), describeTexts(found)};
        }
    }
    for (const std::string &text : conditions.mentions) {
        if (!mentioned(found, text)) {
            return Mismatch{"to mention " + quoted(text), describeTexts(found)};
        }
    }
    for (const std::string &text : conditions.omits) {
        if (mentioned(found, text)) {
            return Mismatch{"not to mention " + quoted(text), describeTexts(found)};
        }
    }
    return std::nullopt;
}

} // namespace

std::string describeFact(const Fact &fact) {
    return std::visit(Describer(), fact);
}

std::optional<Mismatch> compare(const Expected &expected, const Fact &found) {
    if (expected.equals && *expected.equals != found) {
        return Mismatch{describeFact(*expected.equals), describeFact(found)};
    }
    if (expected.conditions.empty()) {
        return std::nullopt;
    }
    if (const auto *texts = std::get_if<Texts>(&found)) {
        return compareTexts(expected.conditions, *texts);
    }
    if (const auto *text = std::get_if<std::string>(&found)) {
        return compareTexts(expected.conditions, {*text});
    }
    return compareTexts(expected.conditions, {});
}

} // namespace cli
