// The service, the control device or the driver goes while the others wait.

#include "service_test.h"

#include "simulator/framework/framework.h"
#include "tests/behaviour/support/driver_state.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::StartsWith;

using Departure = ServiceTest;

TEST_F(Departure, OfTheServiceCancelsWhatItParkedAndLeavesTheQuestionToItsTime) {
    startWithService();
    const Request question = waitForCallback();
    const Request parked = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    service.die();
    EXPECT_EQ(parked->status(), STATUS_CANCELLED);
    EXPECT_EQ(driverState(machine()).controlDevice->m_apiRegistered, FALSE);
    EXPECT_FALSE(isDone(plugged));
    EXPECT_FALSE(afterTimeOut(plugged).started());
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_IO_TIMEOUT);
}

TEST_F(Departure, ANewServiceCannotAnswerWhatTheOldOneWasAskedButMayKnowTheId) {
    startWithService();
    const Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    service.die();
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    const Request parked = waitForCallback();
    EXPECT_FALSE(parked->isBack()) << "a question is shown once";
    parked->cancel();
    decide(question, 2); // ids belong to the driver, not to the handle
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(Departure, OfTheControlNodeEndsEverything) {
    startWithService();
    const Request question = waitForCallback();
    const Request parked = waitForNotification();
    auto plugged = plugging(flashDrive());
    question->await();
    machine().unplug(*control_);
    EXPECT_EQ(parked->status(), STATUS_CANCELLED);
    EXPECT_FALSE(plugged.get()->started());
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_CANCELLED);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to send ioctl request, status = 0xc0000120"));
    unplug("stick");

    // The handle keeps the device half alive: requests are refused, questions fail, nobody new gets in.
    takeLog();
    EXPECT_EQ(waitForNotification()->status(), STATUS_DEVICE_BUSY);
    EXPECT_THAT(takeLog(), Contains(StartsWith("ERROR Failed to request forward to io queue, status = 0x")));
    EXPECT_EQ(send(IOCTL_PING)->status(), STATUS_SUCCESS);
    sim::UserProcess::Handle another = 0;
    EXPECT_EQ(service.open(linkName, another), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_NE(driverState(machine()).controlDevice, nullptr);
    EXPECT_FALSE(plug(flashDrive()).started());
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_DEVICE_BUSY);
    unplug("stick");

    closeService();
    EXPECT_EQ(driverState(machine()).controlDevice, nullptr);
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
    EXPECT_THAT(addOf("stick").log,
                Contains("INFO retreiveUsbMode Control device is not avaliable so it will be blocked"));
}

TEST_F(Departure, OfTheControlNodeWithoutHandlesIsAtOnce) {
    startWithService();
    service.die();
    machine().unplug(*control_);
    EXPECT_EQ(driverState(machine()).controlDevice, nullptr);
}

TEST_F(Departure, ANewControlNodeServesANewService) {
    startWithService();
    service.die();
    control_ = &machine().replug(*control_);
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    const Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(Departure, OfTheDriverWaitsForTheLastHandle) {
    startWithService();
    const Request first = waitForCallback();
    const Request second = waitForNotification();
    plug(mouse());
    EXPECT_EQ(first->status(), STATUS_SUCCESS) << "the mouse's decision";
    EXPECT_FALSE(machine().unloadDriver());
    EXPECT_EQ(second->status(), STATUS_CANCELLED);
    EXPECT_TRUE(machine().driverLoaded());
    EXPECT_EQ(machine().find("mouse"), nullptr);
    EXPECT_EQ(send(IOCTL_PING)->status(), STATUS_SUCCESS);
    closeService();
    EXPECT_FALSE(machine().driverLoaded());
    EXPECT_THAT(machine().leaks(), IsEmpty());
    EXPECT_EQ(send(IOCTL_PING)->status(), STATUS_INVALID_HANDLE);
}

TEST_F(Departure, OfTheDriverWithEverythingAliveLeavesNothing) {
    startWithService();
    const Request question = waitForCallback();
    auto answered = plugging(flashDrive());
    question->await();
    decide(question, 2);
    answered.get();
    const Request asked = waitForCallback();
    auto waiting = plugging(otherFlashDrive());
    asked->await();
    const Request parked[] = {waitForCallback(), waitForNotification()};
    machine().unplug(*control_); // the filter that waits for an answer is let go before its device can be removed
    waiting.get();
    EXPECT_FALSE(machine().unloadDriver());
    for (const Request &request : parked) {
        EXPECT_EQ(request->status(), STATUS_CANCELLED);
    }
    service.die();
    EXPECT_FALSE(machine().driverLoaded());
    EXPECT_THAT(machine().leaks(), IsEmpty());
    EXPECT_EQ(sim::framework::liveObjectCount(), 0U);
}

TEST_F(Departure, RequestsOfExchangesStayUntilTheDriverGoes) {
    startWithService(0);
    const auto told = [this] {
        const Request one = waitForNotification();
        plug(mouse());
        one->await();
        unplug("mouse");
        return sim::framework::liveObjectCount();
    };
    told();
    const std::size_t before = told();
    EXPECT_EQ(told(), before + 2) << "one request and its message";
    EXPECT_EQ(told(), before + 4);
    service.die();
    unload();
    EXPECT_EQ(sim::framework::liveObjectCount(), 0U);
}

} // namespace
} // namespace behaviour
