// Sleep, wake-up and shutdown with a service there.

#include "service_test.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::IsEmpty;

constexpr std::string_view powerLine = "onDevicePowerStateChangeNotification";

const Lines leavingD0{
    "INFO onDevicePowerStateChangeNotification enter state, type = 0x1, current state = 0x307, new state = 0x31a",
    "INFO onDevicePowerStateChangeNotification post process state, type = 0x2, current state = 0x31a",
    "INFO onDevicePowerStateChangeNotification leave state, type = 0x4, current state = 0x31a, new state = 0x359"};

using ServicePower = ServiceTest;

TEST_F(ServicePower, LeavingFullPowerIsLoggedAndComingBackIsNot) {
    startWithService();
    setControlPower(PowerDeviceD3);
    EXPECT_EQ(takeLogWith(powerLine), leavingD0);
    setControlPower(PowerDeviceD0);
    EXPECT_THAT(takeLogWith(powerLine), IsEmpty());
}

TEST_F(ServicePower, SleepOfTheMachineIsLoggedEachTime) {
    startWithService();
    apply(allowing({u"*"}));
    for (int time = 0; time < 2; ++time) {
        machine().sleep();
        EXPECT_EQ(takeLogWith(powerLine), leavingD0);
        machine().wake();
        EXPECT_THAT(takeLogWith(powerLine), IsEmpty());
    }
}

TEST_F(ServicePower, RemovalIsNoChangeOfPower) {
    startWithService();
    service.die();
    machine().replug(*control_);
    EXPECT_THAT(takeLogWith(powerLine), IsEmpty());
}

TEST_F(ServicePower, BelowInfoNothingIsWritten) {
    setParameter(u"LogLevel", 3);
    startWithService();
    machine().sleep();
    machine().wake();
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ServicePower, ParkedRequestsOutliveSleep) {
    startWithService(0);
    const Request told = waitForNotification();
    machine().sleep();
    EXPECT_FALSE(told->isBack());
    machine().wake();
    plug(flashDrive());
    EXPECT_EQ(told->status(), STATUS_SUCCESS);
}

TEST_F(ServicePower, WhatIsParkedWhilePowerIsOffIsPairedWhenItIsBack) {
    startWithService(0);
    setControlPower(PowerDeviceD3);
    auto plugged = plugging(mouse());
    awaitWaitingFilters(1);
    const Request told = waitForNotification();
    EXPECT_FALSE(told->isBack()) << "nothing is paired while power is off";
    setControlPower(PowerDeviceD0);
    EXPECT_TRUE(plugged.get()->started());
    EXPECT_EQ(messageOf(told).number(0), 2U);
}

TEST_F(ServicePower, WhileItIsOffParkedRequestsCanBeTakenBackAndTheServiceMayDie) {
    startWithService(0);
    setControlPower(PowerDeviceD3);
    const Request first = waitForNotification();
    const Request second = waitForNotification();
    EXPECT_TRUE(first->cancel());
    EXPECT_EQ(first->status(), STATUS_CANCELLED);
    service.die();
    EXPECT_EQ(second->status(), STATUS_CANCELLED);
    takeLog();
    setControlPower(PowerDeviceD0); // the queue notifies although it is empty again
    EXPECT_THAT(takeLogWith("ERROR"), IsEmpty());
}

TEST_F(ServicePower, AQuestionWaitsThroughSleepAndIsAnsweredAfterIt) {
    startWithService();
    const Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    setControlPower(PowerDeviceD3);
    takeLog();
    EXPECT_EQ(reply(requestIdOf(question), 2)->status(), STATUS_DEVICE_BUSY) << "no request leaves the queue";
    EXPECT_THAT(takeLog(), Contains(testing::StartsWith("ERROR Failed to find pending request, status = 0x")));
    EXPECT_FALSE(isDone(plugged));
    setControlPower(PowerDeviceD0);
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(ServicePower, TheTimeRunsWhilePowerIsOff) {
    startWithService();
    const Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    setControlPower(PowerDeviceD3);
    EXPECT_FALSE(afterTimeOut(plugged).started());
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_IO_TIMEOUT);
    setControlPower(PowerDeviceD0);
}

TEST_F(ServicePower, APassThatFindsPowerOffEndsAndTheNextPowerUpMakesUpForIt) {
    startWithService();
    const Request question = waitForCallback();
    failInAdd("WdfIoQueueRetrieveNextRequest", 1, STATUS_WDF_PAUSED);
    auto plugged = plugging(flashDrive());
    awaitWaitingFilters(1);
    endFailures();
    EXPECT_FALSE(question->isBack());
    EXPECT_THAT(takeLog(),
                Contains("ERROR Failed to retrieve the next available I/O request for m_ioctlQueue, status = "
                         "0xc0200203"));
    setControlPower(PowerDeviceD3);
    setControlPower(PowerDeviceD0);
    question->await();
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(ServicePower, ShutdownRescansBeforePowerGoes) {
    startWithService();
    const Request told = waitForNotification();
    takeLog();
    machine().shutDown();
    const Lines log = takeLog();
    const auto rescan = std::find(log.begin(), log.end(), "INFO Release blocked devices resources");
    const auto power = std::find(log.begin(), log.end(), leavingD0.front());
    ASSERT_NE(rescan, log.end());
    ASSERT_NE(power, log.end());
    EXPECT_LT(rescan, power);
    EXPECT_FALSE(told->isBack()) << "nobody is told";
    EXPECT_TRUE(control_->started());
}

} // namespace
} // namespace behaviour
