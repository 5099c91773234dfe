#pragma once

#include <ntifs.h>

/// The decision about one device. A value that the service answers is taken as it stands, also outside this list.
enum class UsbMode : ULONG {
    Unknown = 0,  ///< no decision
    Blocked = 1,  ///< disabled and hidden
    Allowed = 2,  ///< works normally
    ReadOnly = 3, ///< works, writes are refused
};

/// What the service is told beside the mode: why it came to this.
enum class RuleType : ULONG {
    Other = 0,
    NotFilterable = 1,
    Allowed = 2,
    Blocked = 3,
    ReadOnly = 4,
    ReadOnlyUnlisted = 5, ///< read-only by the one rule that makes everything unlisted read-only
};

/// The rule type that tells a mode and nothing more.
inline RuleType ruleTypeOf(UsbMode mode) {
    switch (mode) {
    case UsbMode::Blocked:
        return RuleType::Blocked;
    case UsbMode::Allowed:
        return RuleType::Allowed;
    case UsbMode::ReadOnly:
        return RuleType::ReadOnly;
    default:
        return RuleType::Other;
    }
}
