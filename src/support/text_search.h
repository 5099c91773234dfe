#pragma once

#include <ntifs.h>

inline constexpr ULONG notFound = 0xFFFFFFFF;

/// Whether two characters are equal once both are upper case.
bool equalsNoCase(WCHAR a, WCHAR b);

/// Position, in characters, of the first place where `needle` stands in `haystack`, ignoring case; notFound when there
/// is none. An empty needle stands at 0.
ULONG findNoCase(const UNICODE_STRING &haystack, const UNICODE_STRING &needle);
