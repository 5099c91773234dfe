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

/// Maps a driver: an ARM64 image (.sys) or a native module. Throws std::runtime_error when that fails.
std::unique_ptr<DriverImage> openDriver(const std::filesystem::path &file);

/// Maps a native module (a shared object with the entry FxDriverEntry). Throws std::runtime_error when that fails, also
/// when the module is mapped already: its globals would not start anew.
std::unique_ptr<DriverImage> openNativeImage(const std::filesystem::path &module);

/// Maps an ARM64 image. Throws std::runtime_error when it can't be loaded, or when this is no ARM64 program.
std::unique_ptr<DriverImage> openPeImage(const std::filesystem::path &file);
/// Whether a file begins as Windows images do.
bool isPeImage(const std::filesystem::path &file);
/// Whether this program runs on the processor that images are for.
bool runsPeImages();

/// The driver named by the environment variable MYRTELHAVEN_DRIVER, otherwise the one built beside this program: the
/// image for a program on ARM64, the native module for any other.
std::filesystem::path defaultDriver();

} // namespace sim
