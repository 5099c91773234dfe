#include "service_test.h"

#include "simulator/framework/power.h"

#include <cstring>
#include <stdexcept>
#include <thread>

namespace behaviour {

void ServiceTest::startWithService(std::uint32_t callbackMode) {
    setParameter(u"CallbackMode", callbackMode);
    apply(Policy{});
    control_ = &start();
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    takeLog();
}

ServiceTest::Request ServiceTest::send(std::uint32_t code, std::size_t outputBytes, std::vector<std::uint8_t> input) {
    return service.begin(handle, {code, std::move(input), outputBytes});
}

ServiceTest::Request ServiceTest::reply(std::uint64_t requestId, std::uint32_t answer) {
    const CallbackReply made{requestId, answer, 0};
    std::vector<std::uint8_t> bytes(sizeof made);
    std::memcpy(bytes.data(), &made, sizeof made);
    Request replied = send(IOCTL_CALLBACK_REPLY, 0, std::move(bytes));
    replied->await();
    return replied;
}

void ServiceTest::decide(const Request &shown, std::uint32_t answer) {
    Request told = waitForNotification();
    Request replied = reply(requestIdOf(shown), answer);
    EXPECT_EQ(replied->status(), STATUS_SUCCESS);
    EXPECT_EQ(replied->information(), 0U);
    told->await();
    EXPECT_EQ(messageOf(told).number(0), answer);
}

std::uint64_t ServiceTest::requestIdOf(const Request &shown) {
    std::uint64_t id = 0;
    std::memcpy(&id, shown->output().data(), sizeof id);
    return id;
}

std::future<sim::DeviceNode *> ServiceTest::plugging(sim::DeviceDescription device, sim::DeviceNode *parent) {
    return std::async(std::launch::async, [this, device = std::move(device), parent] { return &plug(device, parent); });
}

bool ServiceTest::isDone(std::future<sim::DeviceNode *> &plugged) {
    return plugged.wait_for(std::chrono::milliseconds(20)) == std::future_status::ready;
}

void ServiceTest::awaitWaitingFilters(std::size_t count) {
    using std::chrono::system_clock;
    const auto limit = system_clock::now() + std::chrono::minutes(1);
    while (kernel().clock.timedWaits() != count) {
        if (system_clock::now() > limit) {
            throw std::runtime_error("no filter waits, or too many do");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

sim::DeviceNode &ServiceTest::afterTimeOut(std::future<sim::DeviceNode *> &plugged, unsigned seconds) {
    awaitWaitingFilters(1);
    sim::Clock &clock = kernel().clock;
    const std::int64_t due = clock.firstTimeOut().value_or(0);
    EXPECT_LE(due, clock.now() + std::int64_t{seconds} * 10'000'000);
    clock.set(due - 1);
    EXPECT_FALSE(isDone(plugged));
    clock.set(due);
    return *plugged.get();
}

void ServiceTest::setControlPower(DEVICE_POWER_STATE state) {
    EXPECT_EQ(sim::framework::requestDevicePower(controlStack(), state, PowerActionSleep), STATUS_SUCCESS);
}

Lines ServiceTest::takeLogWith(std::string_view text) {
    Lines lines = takeLog();
    std::erase_if(lines, [text](const std::string &line) { return line.find(text) == std::string::npos; });
    return lines;
}

void ServiceTest::TearDown() {
    service.die();
    DriverTest::TearDown();
}

} // namespace behaviour
