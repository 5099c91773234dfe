#pragma once

#include <ntifs.h>

#include "log/kstring.h"

/// One rule: the element of a rule table.
struct RuleEntry {
    UNICODE_STRING key; ///< views the text; the table orders and looks up by it
    KString text;       ///< owns the text
};
static_assert(__builtin_offsetof(RuleEntry, text) == 0x10);
static_assert(sizeof(RuleEntry) == 0x30);

/// A set of upper-case patterns, each once (keys that differ only in case are the same rule), in the order of their
/// text. Has no lock of its own: the storage that holds it guards it. PASSIVE_LEVEL.
class RuleSet {
  public:
    /// Makes an empty table. The set must not move afterwards: the table points into it.
    void initialize();

    /// Frees every rule.
    void clear();

    /// Normalises a rule and puts it into the set: a rule without a backslash gains "\*" (any serial) when
    /// `appendWildcard` is given, and the text is made upper case. A rule that is already there is replaced.
    /// Logs what fails and returns its status; the set is then unchanged.
    NTSTATUS putIdToContainerWithSerial(const UNICODE_STRING &rule, bool appendWildcard);

    /// The rule whose text equals `id`, ignoring case; null when there is none.
    const RuleEntry *find(const UNICODE_STRING &id);

    ULONG count();

    /// Calls `visit(rule text)` for the rules in the order of their text until it answers true; false when none did.
    /// Leaves the table untouched, so that several threads may do this under a shared lock. (Asking for elements by
    /// index moves a cursor inside the table.)
    template<typename Visit>
    bool anyRule(Visit visit) {
        PVOID restartKey = nullptr;
        while (PVOID element = RtlEnumerateGenericTableWithoutSplayingAvl(&table_, &restartKey)) {
            if (visit(static_cast<const RuleEntry *>(element)->key)) {
                return true;
            }
        }
        return false;
    }

  private:
    NTSTATUS insert(KString &text);

    POOL_FLAGS poolFlags_; // the table's context points here
    RTL_AVL_TABLE table_;
};
static_assert(sizeof(RuleSet) == 0x70);
