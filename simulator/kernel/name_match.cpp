// Wildcard matching of names.

#include "kernel.h"
#include "name_expression.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <excpt.h>

#include <vector>

using namespace sim;

namespace {

constexpr char16_t anyRun = u'*';
constexpr char16_t anyCharacter = u'?';
constexpr char16_t runToLastDot = u'<';
constexpr char16_t noDotOrNothing = u'>';
constexpr char16_t dotOrEnd = u'"';

/// Longer expressions make the real routine allocate its state (the limit is recalled).
constexpr std::size_t longExpression = 32;

/// The set of positions in the expression that the part of the name read so far can have led to.
class Positions {
  public:
    explicit Positions(std::u16string_view expression) : expression_(expression), marks_(expression.size() + 1) {}

    bool at(std::size_t position) const { return marks_[position] != 0; }
    bool complete() const { return at(expression_.size()); }
    bool empty() const { return first_ > last_; }
    std::size_t first() const { return first_; }
    std::size_t last() const { return last_; }
    void clear() {
        if (!empty()) {
            std::fill(marks_.begin() + static_cast<std::ptrdiff_t>(first_),
                      marks_.begin() + static_cast<std::ptrdiff_t>(last_ + 1), 0);
        }
        first_ = marks_.size();
        last_ = 0;
    }

    /// Adds a position and those behind it that need no character. `next` is the name's next character, 0 at its end.
    void add(std::size_t position, bool atEnd, char16_t next) {
        while (!at(position)) {
            marks_[position] = 1;
            first_ = std::min(first_, position);
            last_ = std::max(last_, position);
            if (position == expression_.size() || !mayBeNothing(expression_[position], atEnd, next)) {
                return;
            }
            ++position;
        }
    }

  private:
    static bool mayBeNothing(char16_t wildcard, bool atEnd, char16_t next) {
        switch (wildcard) {
        case anyRun:
        case runToLastDot:
            return true;
        case noDotOrNothing:
            return atEnd || next == u'.';
        case dotOrEnd:
            return atEnd;
        default:
            return false;
        }
    }

    std::u16string_view expression_;
    std::vector<unsigned char> marks_;
    std::size_t first_ = marks_.size(); ///< of the marked ones; behind `last_` when there is none
    std::size_t last_ = 0;
};

bool matches(std::u16string_view expression, std::u16string_view name) {
    if (expression.empty() || name.empty()) {
        return expression.empty() && name.empty();
    }
    const std::size_t lastDot = name.rfind(u'.');
    Positions now(expression);
    Positions then(expression);
    now.add(0, false, name[0]);
    for (std::size_t index = 0; index < name.size(); ++index) {
        const char16_t unit = name[index];
        const bool atEnd = index + 1 == name.size();
        const char16_t next = atEnd ? u'\0' : name[index + 1];
        then.clear();
        for (std::size_t position = now.first(); position <= now.last(); ++position) {
            if (position == expression.size() || !now.at(position)) {
                continue;
            }
            switch (expression[position]) {
            case anyRun:
                then.add(position, atEnd, next);
                break;
            case runToLastDot:
                // The last dot itself ends the run, whether it belongs to it or not.
                then.add(index == lastDot ? position + 1 : position, atEnd, next);
                break;
            case anyCharacter:
                then.add(position + 1, atEnd, next);
                break;
            case noDotOrNothing:
                if (unit != u'.') {
                    then.add(position + 1, atEnd, next);
                }
                break;
            case dotOrEnd:
                if (unit == u'.') {
                    then.add(position + 1, atEnd, next);
                }
                break;
            default:
                if (expression[position] == unit) {
                    then.add(position + 1, atEnd, next);
                }
            }
        }
        std::swap(now, then);
        if (now.empty()) {
            return false;
        }
    }
    return now.complete();
}

} // namespace

namespace sim {

bool nameMatches(std::u16string_view expression, std::u16string_view name) {
    return matches(expression, name);
}

} // namespace sim

// learn.microsoft.com: FsRtlIsNameInExpression. Only the name is upcased, so that a lower-case letter of the expression
// never matches when case is ignored (recalled).
BOOLEAN sim::isNameInExpression(PUNICODE_STRING expression, PUNICODE_STRING name, BOOLEAN ignoreCase, PWCH upcaseTable,
                                const void *callSite) {
    constexpr auto routine = "FsRtlIsNameInExpression";
    requirePassive(routine, callSite);
    kernel().pool.checkAccess(expression->Buffer, expression->Length & ~1u, routine, callSite);
    kernel().pool.checkAccess(name->Buffer, name->Length & ~1u, routine, callSite);
    const std::u16string_view pattern = view(*expression);
    const bool allocates = (ignoreCase && upcaseTable == nullptr) || pattern.size() > longExpression;
    if (allocates && kernel().faults.shouldFail(routine)) {
        throw PlatformStructuredException{kernel().faults.statusFor(routine, STATUS_NO_MEMORY)};
    }
    bool hit = false;
    if (ignoreCase) {
        std::u16string upper(view(*name));
        for (char16_t &unit : upper) {
            unit = upcaseTable != nullptr ? static_cast<char16_t>(upcaseTable[unit]) : upcase(unit);
        }
        hit = matches(pattern, upper);
    } else {
        hit = matches(pattern, view(*name));
    }
    if (kernel().trace.active()) {
        TraceEvent event{};
        event.kind = TraceEvent::Kind::nameMatch;
        event.text = pattern;
        event.name = view(*name);
        event.hit = hit;
        kernel().trace.emit(event);
    }
    return hit;
}

extern "C" BOOLEAN FsRtlIsNameInExpression(PUNICODE_STRING expression, PUNICODE_STRING name, BOOLEAN ignoreCase,
                                           PWCH upcaseTable) {
    return isNameInExpression(expression, name, ignoreCase, upcaseTable, SIM_CALL_SITE);
}
