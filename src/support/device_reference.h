#pragma once

#include <ntifs.h>

/// Owns one reference to a device object, or nothing. IRQL <= DISPATCH_LEVEL.
class [[nodiscard]] DeviceReference {
  public:
    DeviceReference() = default;
    ~DeviceReference() { reset(); }
    DeviceReference(DeviceReference &&other) noexcept : device_(other.device_) { other.device_ = nullptr; }
    DeviceReference &operator=(DeviceReference &&other) noexcept {
        if (this != &other) {
            reset();
            device_ = other.device_;
            other.device_ = nullptr;
        }
        return *this;
    }
    DeviceReference(const DeviceReference &) = delete;
    DeviceReference &operator=(const DeviceReference &) = delete;

    /// Takes over a reference that a kernel routine added.
    static DeviceReference adopt(PDEVICE_OBJECT referenced) { return DeviceReference(referenced); }
    /// Adds a reference of its own.
    static DeviceReference share(PDEVICE_OBJECT device) {
        if (device != nullptr) {
            ObReferenceObject(device);
        }
        return DeviceReference(device);
    }

    explicit operator bool() const { return device_ != nullptr; }
    PDEVICE_OBJECT get() const { return device_; }

  private:
    explicit DeviceReference(PDEVICE_OBJECT referenced) : device_(referenced) {}
    void reset() {
        if (device_ != nullptr) {
            ObDereferenceObject(device_);
            device_ = nullptr;
        }
    }

    PDEVICE_OBJECT device_ = nullptr;
};
