#pragma once

#include "driver_image.h"

#include <functional>
#include <mutex>
#include <vector>

namespace sim::machine {

/// The one driver that this machine exists for: its image and its driver object. Thread-safe.
class DriverUnderTest {
  public:
    using OpenImage = std::function<std::unique_ptr<DriverImage>()>;

    explicit DriverUnderTest(OpenImage openImage) : openImage_(std::move(openImage)) {}
    ~DriverUnderTest() = default;
    DriverUnderTest(const DriverUnderTest &) = delete;
    DriverUnderTest &operator=(const DriverUnderTest &) = delete;

    /// Maps the image and calls its entry; STATUS_SUCCESS at once when that was done before. What opening the image
    /// throws goes through.
    NTSTATUS load();
    PDRIVER_OBJECT object() const; ///< null when not loaded
    /// Calls DriverUnload and unmaps. No device of the driver may be left in a stack: std::logic_error otherwise, and
    /// for a driver without an unload routine.
    void unload();
    bool inUse() const; ///< a device of the driver is in a stack
    /// The machine's end: unloads the driver if it can be unloaded, otherwise leaves it mapped for good.
    void switchOff();
    /// Unmaps images that were kept because a work item still had the driver object.
    void unmapUnused();

  private:
    /// An image whose driver object may still be referenced.
    struct Retired {
        std::unique_ptr<DriverImage> image;
        PDRIVER_OBJECT object;
    };
    void retire();
    bool anyDeviceAttached() const; ///< the mutex is held

    const OpenImage openImage_;
    mutable std::mutex mutex_;
    std::unique_ptr<DriverImage> image_;
    PDRIVER_OBJECT object_ = nullptr;
    std::vector<Retired> retired_;
};

} // namespace sim::machine
