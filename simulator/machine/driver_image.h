#pragma once

#include <ntifs.h>

#include <filesystem>
#include <memory>

namespace sim {

/// A driver's code, mapped. Destroying it unmaps.
class DriverImage {
  public:
    virtual ~DriverImage() = default;
    /// Calls the image's entry point.
    virtual NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) = 0;
    /// Where it is mapped and how long it is; null and 0 when not known.
    virtual void *start() const { return nullptr; }
    virtual ULONG size() const { return 0; }
};

/// Maps a native module (a shared object with the entry FxDriverEntry). Throws std::runtime_error when that fails, also
/// when the module is mapped already: its globals would not start anew.
std::unique_ptr<DriverImage> openNativeImage(const std::filesystem::path &module);

/// The module named by the environment variable MYRTELHAVEN_DRIVER, otherwise the one built beside this program.
std::filesystem::path defaultNativeDriver();

} // namespace sim
