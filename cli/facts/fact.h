#pragma once

#include <ntifs.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace cli {

/// Nothing is there: no such property, value, rule …
struct Absent {
    bool operator==(const Absent &) const = default;
};

struct StatusFact {
    NTSTATUS status = 0;
    bool operator==(const StatusFact &) const = default;
};

using Texts = std::vector<std::string>;

/// Something that was observed, in the form in which expectations and reports speak of it. Texts are in visible form.
using Fact = std::variant<Absent, std::string, std::uint64_t, bool, StatusFact, Texts>;

/// The fact as a person reads it, e.g. "'USBSTOR'", "none", "true", "STATUS_SUCCESS (0x00000000)".
std::string describeFact(const Fact &fact);

/// What texts must or must not hold. For a single text, mentions and omits apply to it.
struct TextConditions {
    std::optional<Texts> exactly; ///< all of them, in this order
    Texts contains;               ///< each is there, in this order, others may stand between
    Texts excludes;               ///< none of them is there
    Texts mentions;               ///< each occurs somewhere within a text
    Texts omits;                  ///< occurs within no text

    bool empty() const { return !exactly && contains.empty() && excludes.empty() && mentions.empty() && omits.empty(); }
};

/// What a scenario expects of one fact: a value, or conditions on text, or on the parts of a message.
struct Expected {
    std::optional<Fact> equals;
    TextConditions conditions;
    std::vector<std::pair<std::string, Fact>> fields; ///< of a record, such as a service message
    std::optional<std::vector<std::vector<std::pair<std::string, Fact>>>> records; ///< of a list of records
};

/// How an expectation was not met.
struct Mismatch {
    std::string expected;
    std::string found;
};

/// Compares; nothing when the expectation holds. `fields` of an Expected are not looked at here.
std::optional<Mismatch> compare(const Expected &expected, const Fact &found);

} // namespace cli
