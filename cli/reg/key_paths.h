#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// The kernel's path ("\Registry\Machine\…") of a key written with a root name ("HKEY_LOCAL_MACHINE\…", "HKLM\…",
/// "HKEY_USERS\…", "HKEY_CLASSES_ROOT\…") or already in kernel form. ControlSet001, the control set that this machine
/// runs, becomes CurrentControlSet. Nothing for other roots.
std::optional<std::u16string> kernelKeyPath(std::string_view path);

/// As kernelKeyPath, and also "service", "parameters" (keys of the driver's service, with or without a rest) and
/// "class\NAME-OR-GUID" (the key of a setup class).
std::optional<std::u16string> scenarioKeyPath(std::string_view path);

/// The class GUID for a setup class's name ("USB") or for a GUID, which is returned as written; nothing otherwise.
std::optional<std::u16string> classGuidFor(std::string_view nameOrGuid);

/// The name of a setup class, or the GUID itself when it is unknown here; "-" for none.
std::string classDisplayName(const std::optional<std::u16string> &guid);

} // namespace cli
