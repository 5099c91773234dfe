#pragma once

#include "myrtelhaven_service.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/service_message.h"
#include "tests/races/support/user_request.h"

#include <future>
#include <memory>

namespace behaviour {

/// A machine whose policy asks the service about every device that it filters, and a service process that a test drives
/// step by step.
class ServiceTest : public DriverTest {
  protected:
    using Request = std::unique_ptr<races::UserRequest>;

    /// Starts the driver with CallbackMode 1 and opens the control device as process 100.
    void startWithService(std::uint32_t callbackMode = 1);
    PDEVICE_OBJECT controlStack() { return control_->physicalDevice(); }
    races::ServiceHandle &service() { return *handle_; }
    void closeService() { handle_.reset(); }

    Request send(std::uint32_t code, std::size_t outputBytes = 0, std::vector<std::uint8_t> input = {});
    Request waitForCallback(std::size_t bytes = MYRTELHAVEN_CALLBACK_BYTES) { return send(IOCTL_WAIT_CALLBACK, bytes); }
    Request waitForNotification(std::size_t bytes = sizeof(NotificationInfo)) {
        return send(IOCTL_WAIT_NOTIFICATION, bytes);
    }
    Request reply(std::uint64_t requestId, std::uint32_t answer);
    /// Replies, and takes the notification of the decision that follows: the device add waits until somebody does.
    void decide(const races::UserRequest &shown, std::uint32_t answer);
    static std::uint64_t requestIdOf(const races::UserRequest &shown);

    /// Plugs a device in a thread of its own, which waits for the service's answer.
    std::future<sim::DeviceNode *> plugging(sim::DeviceDescription device);
    void letTimePass(unsigned seconds) { kernel().clock.advance(std::int64_t{seconds} * 10'000'000); }
    /// Moves the clock until the device add is over. It is moved again and again: nothing shows from outside when the
    /// filter has begun to wait.
    sim::DeviceNode &afterTimeOut(std::future<sim::DeviceNode *> &plugged, unsigned seconds = 30);

    void TearDown() override;

    sim::DeviceNode *control_ = nullptr;

  private:
    std::unique_ptr<races::ServiceHandle> handle_;
};

} // namespace behaviour
