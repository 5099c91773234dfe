#pragma once

#include "object.h"

#include <ntifs.h>

#include <condition_variable>
#include <list>
#include <mutex>

namespace sim::framework {

class Device;
class Request;

/// A WDFIOTARGET: where requests are sent. Either the next lower device of the stack or a device that the driver
/// opened.
class Target : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::target;

    Target(Device &device, const void *callSite); ///< to be opened
    Target(Device &device, PDEVICE_OBJECT lower); ///< the default target
    ~Target() override;

    bool internal() const override { return isDefault_; }
    bool passiveDisposal() const override { return true; }
    const char *deletionRefusal() const override {
        return isDefault_ ? "the default I/O target cannot be deleted by its driver" : nullptr;
    }

    Device &device;
    /// Stack locations that a request for this target needs; 0 until opened.
    CCHAR stackSize() const;

    /// Opens an existing device object, which is not referenced. Asks the device's stack for its physical device.
    NTSTATUS open(PDEVICE_OBJECT target);
    /// Cancels what was sent and waits for it. May be opened again.
    void close();

    // Sending.
    /// Takes the request among those under way. STATUS_INVALID_DEVICE_STATE when the target is not open.
    NTSTATUS begin(Request &request, PDEVICE_OBJECT &destination);
    void ended(Request &request);
    /// The device that requests go to; null when the target is not open.
    PDEVICE_OBJECT destination() const;

  protected:
    void afterCleanup() override;

  private:
    enum class State { closed, opening, started, removed };
    void drain(State next);
    void forgetTarget();

    const bool isDefault_;
    mutable std::mutex mutex_;
    std::condition_variable idle_;
    State state_;
    PDEVICE_OBJECT target_ = nullptr;
    PDEVICE_OBJECT physical_ = nullptr; ///< referenced while open
    CCHAR stackSize_ = 0;
    std::list<Request *> sent_;
};

} // namespace sim::framework
