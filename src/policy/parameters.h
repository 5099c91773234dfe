#pragma once

#include <ntifs.h>

/// Where the service's settings lie.
inline constexpr WCHAR parametersKeyPath[] =
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver\\Parameters";

/// Reads a REG_DWORD of the key at `absoluteKeyPath`. A missing key or value, another type or another size leaves
/// `target` as it was. Returns the status of the query. PASSIVE_LEVEL.
NTSTATUS queryDwordValue(const WCHAR *absoluteKeyPath, const WCHAR *valueName, ULONG &target);
