#include "service_test.h"

#include <cstring>

namespace behaviour {

void ServiceTest::startWithService(std::uint32_t callbackMode) {
    setParameter(u"CallbackMode", callbackMode);
    apply(Policy{});
    control_ = &start();
    handle_ = std::make_unique<races::ServiceHandle>(controlStack(), 100);
    ASSERT_EQ(handle_->status(), STATUS_SUCCESS);
    takeLog();
}

ServiceTest::Request ServiceTest::send(std::uint32_t code, std::size_t outputBytes, std::vector<std::uint8_t> input) {
    return std::make_unique<races::UserRequest>(*handle_, code, std::move(input), outputBytes);
}

ServiceTest::Request ServiceTest::reply(std::uint64_t requestId, std::uint32_t answer) {
    const CallbackReply made{requestId, answer, 0};
    std::vector<std::uint8_t> bytes(sizeof made);
    std::memcpy(bytes.data(), &made, sizeof made);
    return send(IOCTL_CALLBACK_REPLY, 0, std::move(bytes));
}

void ServiceTest::decide(const races::UserRequest &shown, std::uint32_t answer) {
    Request told = waitForNotification();
    Request replied = reply(requestIdOf(shown), answer);
    EXPECT_EQ(replied->status(), STATUS_SUCCESS);
    EXPECT_EQ(replied->information(), 0U);
    told->await();
    EXPECT_EQ(MessageBytes(told->buffer()).number(0), answer);
}

std::uint64_t ServiceTest::requestIdOf(const races::UserRequest &shown) {
    std::uint64_t id = 0;
    std::memcpy(&id, shown.buffer().data(), sizeof id);
    return id;
}

std::future<sim::DeviceNode *> ServiceTest::plugging(sim::DeviceDescription device) {
    return std::async(std::launch::async, [this, device = std::move(device)] { return &plug(device); });
}

sim::DeviceNode &ServiceTest::afterTimeOut(std::future<sim::DeviceNode *> &plugged, unsigned seconds) {
    while (plugged.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        letTimePass(seconds);
    }
    return *plugged.get();
}

void ServiceTest::TearDown() {
    handle_.reset();
    DriverTest::TearDown();
}

} // namespace behaviour
