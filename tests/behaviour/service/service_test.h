#pragma once

#include "myrtelhaven_service.h"
#include "simulator/process/user_process.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/service_message.h"

#include <future>

namespace behaviour {

/// A machine whose policy asks the service about every device that it filters, and a service process that a test drives
/// step by step.
class ServiceTest : public DriverTest {
  protected:
    using Request = sim::UserProcess::Io;

    /// Starts the driver with CallbackMode 1 and opens the control device.
    void startWithService(std::uint32_t callbackMode = 1);
    PDEVICE_OBJECT controlStack() { return control_->physicalDevice(); }
    void closeService() { service.close(handle); }

    Request send(std::uint32_t code, std::size_t outputBytes = 0, std::vector<std::uint8_t> input = {});
    Request waitForCallback(std::size_t bytes = MYRTELHAVEN_CALLBACK_BYTES) { return send(IOCTL_WAIT_CALLBACK, bytes); }
    Request waitForNotification(std::size_t bytes = sizeof(NotificationInfo)) {
        return send(IOCTL_WAIT_NOTIFICATION, bytes);
    }
    Request reply(std::uint64_t requestId, std::uint32_t answer);
    /// Replies, and takes the notification of the decision that follows: the device add waits until somebody does.
    void decide(const Request &shown, std::uint32_t answer);
    static std::uint64_t requestIdOf(const Request &shown);
    static MessageBytes messageOf(const Request &shown) { return MessageBytes(shown->output()); }

    /// Plugs a device in a thread of its own, which waits for the service's answer.
    std::future<sim::DeviceNode *> plugging(sim::DeviceDescription device, sim::DeviceNode *parent = nullptr);
    static bool isDone(std::future<sim::DeviceNode *> &plugged);
    /// Waits until so many filters wait for the service with a time-out.
    void awaitWaitingFilters(std::size_t count);
    void letTimePass(unsigned seconds) { kernel().clock.advance(std::int64_t{seconds} * 10'000'000); }
    /// Waits until a filter waits, and moves the clock to the end of its time; checks that it gives up then and not a
    /// moment before.
    sim::DeviceNode &afterTimeOut(std::future<sim::DeviceNode *> &plugged, unsigned seconds = 30);
    void setControlPower(DEVICE_POWER_STATE state);
    /// Lines of the log that contain the text.
    Lines takeLogWith(std::string_view text);

    void TearDown() override;

    sim::DeviceNode *control_ = nullptr;
    sim::UserProcess service{100};
    sim::UserProcess::Handle handle = 0;
};

} // namespace behaviour
