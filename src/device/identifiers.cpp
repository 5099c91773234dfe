#include "device/identifiers.h"

#include "support/name_match.h"
#include "support/text.h"

UNICODE_STRING nextMultiSzString(const UNICODE_STRING &list, LONG &position) {
    const LONG count = characterCount(list);
    const LONG start = position;
    for (LONG index = start; index < count; ++index) {
        if (list.Buffer[index] == L'\0') {
            position = index + 1;
            return part(list, static_cast<USHORT>(start), static_cast<USHORT>(index - start));
        }
    }
    position = -1;
    return start < count ? part(list, static_cast<USHORT>(start), static_cast<USHORT>(count - start))
                         : UNICODE_STRING{};
}

UNICODE_STRING idWithoutBus(const UNICODE_STRING &identifier) {
    const USHORT count = characterCount(identifier);
    for (USHORT index = 0; index < count; ++index) {
        if (identifier.Buffer[index] != L'\\') {
            continue;
        }
        if (index == 0) {
            return identifier;
        }
        return part(identifier, static_cast<USHORT>(index + 1), static_cast<USHORT>(count - index - 1));
    }
    return identifier;
}

ULONG getInterfaceNumber(const UNICODE_STRING &hardwareIds) {
    LONG position = 0;
    const UNICODE_STRING first = nextMultiSzString(hardwareIds, position);
    ULONG number = noInterfaceNumber;
    if (matchesExpression(literal(L"*&MI_??"), first, CaseRule::asWritten)) {
        const UNICODE_STRING digits = part(first, static_cast<USHORT>(characterCount(first) - 2), 2);
        (void)RtlUnicodeStringToInteger(&digits, 16, &number);
    }
    return number;
}
