#pragma once

#include <ntifs.h>

inline constexpr ULONG noInterfaceNumber = 0xFFFFFFFF;

/// The string of a multi-string that begins at `position` (in characters; start with 0). `position` moves behind its
/// NUL, or becomes -1 when the list ended without one. Loop while it is not negative: a list without a last NUL is
/// then still visited to its end.
UNICODE_STRING nextMultiSzString(const UNICODE_STRING &list, LONG &position);

/// The identifier behind the first backslash; the whole identifier when there is none, or when it begins with one.
UNICODE_STRING idWithoutBus(const UNICODE_STRING &identifier);

/// Calls `visit(view)` for each string of a multi-string until it answers true; false when none did.
template<typename Visit>
bool anyOfMultiSz(const UNICODE_STRING &list, Visit visit) {
    for (LONG position = 0; position >= 0;) {
        if (visit(nextMultiSzString(list, position))) {
            return true;
        }
    }
    return false;
}

/// Number of the interface that the first hardware id of the list names ("…&MI_0A" is 10); noInterfaceNumber when it
/// names none. PASSIVE_LEVEL.
ULONG getInterfaceNumber(const UNICODE_STRING &hardwareIds);
