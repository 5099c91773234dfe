#include "support/text_search.h"

#include "support/text.h"

namespace {

bool standsAt(const UNICODE_STRING &haystack, USHORT start, const UNICODE_STRING &needle) {
    const USHORT count = characterCount(needle);
    for (USHORT index = 0; index < count; ++index) {
        if (!equalsNoCase(haystack.Buffer[start + index], needle.Buffer[index])) {
            return false;
        }
    }
    return true;
}

} // namespace

bool equalsNoCase(WCHAR a, WCHAR b) {
    return RtlUpcaseUnicodeChar(a) == RtlUpcaseUnicodeChar(b);
}

ULONG findNoCase(const UNICODE_STRING &haystack, const UNICODE_STRING &needle) {
    const USHORT wanted = characterCount(needle);
    const USHORT available = characterCount(haystack);
    for (USHORT start = 0; start + wanted <= available; ++start) {
        if (standsAt(haystack, start, needle)) {
            return start;
        }
    }
    return notFound;
}
