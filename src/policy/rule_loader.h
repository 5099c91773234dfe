#pragma once

#include <ntifs.h>

#include "policy/rule_set.h"

/// Where the rules of a storage go, and how the values are read when they are plain strings.
struct RuleSources {
    RuleSet &allowed;
    RuleSet &blocked;
    RuleSet &readOnly;
    UNICODE_STRING defaultBlocked; ///< for a BlockedCompatibleIds string without data
    bool stringsMatchAnySerial;    ///< plain-string allowed and read-only rules gain "\*"
};

/// Empties the sets and reads them from the Parameters key under `lock`, taken exclusive. Each value is read as
/// REG_MULTI_SZ, failing that as REG_SZ. Without blocked rules the other values are not read. Returns the status of the
/// last plain-string read that was made, or that of opening the key. PASSIVE_LEVEL.
NTSTATUS reloadRules(ERESOURCE &lock, const RuleSources &sources);
