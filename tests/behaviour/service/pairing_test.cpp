// How questions and decisions that wait meet the requests that the service parked.

#include "service_test.h"

#include "tests/behaviour/support/driver_state.h"

#include <cstdlib>
#include <filesystem>
#include <thread>

namespace behaviour {
namespace {

using testing::Contains;
using testing::IsEmpty;

class Pairing : public ServiceTest {
  protected:
    /// Plugs a flash drive that the service does not decide, by answering 0, and waits until its notification, which
    /// nobody is to see, waits with the control device.
    std::future<sim::DeviceNode *> pluggingUndecided() {
        const Request question = waitForCallback();
        auto plugged = plugging(flashDrive());
        question->await();
        EXPECT_EQ(reply(requestIdOf(question), 0)->status(), STATUS_SUCCESS);
        awaitInternal(1);
        return plugged;
    }
    /// Plugs a mouse, which is not asked about, and waits until its notification waits.
    std::future<sim::DeviceNode *> pluggingTold(unsigned waitingThen) {
        auto plugged = plugging(mouse());
        awaitInternal(waitingThen);
        return plugged;
    }
    void awaitInternal(ULONG count) {
        const WDFQUEUE queue = control().m_internalIoctlQueue;
        while (sim::framework::queueCounts(queue).queued != count) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        awaitWaitingFilters(count);
    }
    const ControlDevice &control() { return *driverState(machine()).controlDevice; }
    ULONG keptByDriver() { return sim::framework::queueCounts(control().m_ioctlQueue).withDriver; }
    static std::u16string deviceIn(const Request &told) { return messageOf(told).text(4, 200); }
};

TEST_F(Pairing, NeedsBothSides) {
    startWithService(0);
    const Request parked[] = {waitForCallback(), waitForNotification(), waitForNotification()};
    EXPECT_EQ(sim::framework::queueCounts(control().m_ioctlQueue).queued, 3U);
    for (const Request &request : parked) {
        EXPECT_FALSE(request->isBack());
    }
    EXPECT_THAT(takeLogWith("fetchRequestsAndProcess"), IsEmpty());
}

TEST_F(Pairing, ServesBothSidesInTheOrderOfTheirArrival) {
    startWithService(0);
    auto one = plugging(mouse());
    awaitInternal(1);
    auto other = plugging(flashDrive());
    awaitInternal(2);
    const Request first = waitForNotification();
    const Request second = waitForNotification();
    one.get();
    other.get();
    EXPECT_EQ(deviceIn(first), u"USB Optical Mouse");
    EXPECT_EQ(deviceIn(second), u"Ultra");
}

TEST_F(Pairing, ARequestThatIsPutBackIsPairedAgainBeforeThePassReturns) {
    startWithService();
    auto undecided = pluggingUndecided();
    auto told = pluggingTold(2);
    takeLog();
    const Request notification = waitForNotification(); // meets the undecided one, is put back, meets the other
    EXPECT_TRUE(notification->isBack());
    EXPECT_EQ(deviceIn(notification), u"USB Optical Mouse");
    EXPECT_EQ(takeLogWith("fetchRequestsAndProcess"), Lines(2, "INFO fetchRequestsAndProcess ioctl code = 2244612"));
    undecided.get();
    told.get();
    EXPECT_EQ(filterOf("stick").mode, 0U);
}

TEST_F(Pairing, AQuestionThatMeetsARequestForNotificationsIsLost) {
    startWithService();
    const Request notification = waitForNotification();
    EXPECT_TRUE(plug(flashDrive()).started());
    EXPECT_EQ(filterOf("stick").mode, 0U) << "neither asked nor decided";
    EXPECT_EQ(filterOf("stick").ruleType, 0U);
    EXPECT_FALSE(notification->isBack());
    EXPECT_THAT(addOf("stick").log, Contains("INFO Send callback, mode = 0"));
    EXPECT_EQ(keptByDriver(), 0U);
}

TEST_F(Pairing, WhatABufferIsTooSmallForGoesToTheNextRequest) {
    startWithService(0);
    setControlPower(PowerDeviceD3); // so that all of them meet in one pass
    auto one = plugging(mouse());
    awaitInternal(1);
    auto other = plugging(flashDrive());
    awaitInternal(2);
    const Request tooSmall = waitForNotification(403);
    const Request first = waitForNotification();
    const Request second = waitForNotification();
    setControlPower(PowerDeviceD0);
    EXPECT_EQ(tooSmall->status(), STATUS_BUFFER_TOO_SMALL);
    one.get();
    other.get();
    EXPECT_EQ(deviceIn(first), u"USB Optical Mouse");
    EXPECT_EQ(deviceIn(second), u"Ultra");
}

TEST_F(Pairing, IdsOfOpenQuestionsDiffer) {
    startWithService();
    const Request first = waitForCallback();
    const Request second = waitForCallback();
    auto one = plugging(flashDrive());
    auto other = plugging(otherFlashDrive());
    first->await();
    second->await();
    EXPECT_NE(requestIdOf(first), 0U);
    EXPECT_NE(requestIdOf(first), requestIdOf(second));
    decide(first, 1);
    decide(second, 1);
    one.get();
    other.get();
}

TEST_F(Pairing, AQuestionThatWasNotShownCannotBeAnswered) {
    startWithService();
    auto plugged = plugging(flashDrive());
    awaitInternal(1);
    for (const std::uint64_t id : {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}}) {
        EXPECT_EQ(reply(id, 2)->status(), STATUS_NO_MORE_ENTRIES) << "the end of the queue, as the service sees it";
    }
    EXPECT_EQ(takeLogWith("Failed to find pending request"),
              Lines(3, "ERROR Failed to find pending request, status = 0x8000001a"));
    const Request question = waitForCallback();
    question->await();
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(Pairing, APassEndsAlthoughARetrieveFailsForEver) {
    startWithService(0);
    const Request notification = waitForNotification();
    failInAdd("WdfIoQueueRetrieveNextRequest", 1, STATUS_NO_MORE_ENTRIES, true);
    auto untold = plugging(mouse());
    awaitInternal(1);
    EXPECT_TRUE(afterTimeOut(untold).started());
    endFailures();
    EXPECT_THAT(addOf("mouse").log,
                Contains("ERROR Failed to retrieve the next available I/O request for m_ioctlQueue, "
                         "status = 0x8000001a"));
    EXPECT_FALSE(notification->isBack());
    plug(flashDrive());
    EXPECT_EQ(deviceIn(notification), u"Ultra") << "the next pass finds what this one left";
}

/// A service request that the driver forgets can never be had back, and with it neither its file nor its device: such a
/// machine ends with its process.
class DroppedRequest : public Pairing {
  protected:
    DroppedRequest() {
        options.systemRoot = std::filesystem::temp_directory_path() /
                             ("myrtelhaven-dropped-" + std::to_string(testing::UnitTest::GetInstance()->random_seed()) +
                              testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(options.systemRoot);
    }
    ~DroppedRequest() override { std::filesystem::remove_all(options.systemRoot); }

    template<typename Steps>
    void inAMachineOfItsOwn(Steps steps) {
        EXPECT_EXIT(
            {
                steps();
                std::_Exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }

    void expectKeptForEver(const Request &dropped) {
        EXPECT_FALSE(dropped->isBack());
        EXPECT_EQ(keptByDriver(), 1U);
        EXPECT_TRUE(dropped->cancel());
        EXPECT_FALSE(dropped->isBack()) << "the driver has it and does not mind";
        service.die();
        EXPECT_FALSE(dropped->isBack());
        EXPECT_EQ(control().m_processId, service.id()) << "its file is still open, so nobody else gets in";
        sim::UserProcess other{200};
        sim::UserProcess::Handle its = 0;
        EXPECT_EQ(other.open(linkName, its), STATUS_ACCESS_DENIED);
        auto sleeping = std::async(std::launch::async, [this] { machine().sleep(); });
        EXPECT_EQ(sleeping.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "no sleep either";
        std::_Exit(HasFailure() ? 1 : 0); // before the future waits for what never comes
    }
};

TEST_F(DroppedRequest, AnUndecidedDeviceTakesItsRequestAlongWhenThePassGoesOn) {
    inAMachineOfItsOwn([this] {
        startWithService();
        auto undecided = pluggingUndecided();
        setControlPower(PowerDeviceD3); // so that all of them meet in one pass
        auto told = pluggingTold(2);
        const Request dropped = waitForNotification();
        const Request next = waitForNotification();
        setControlPower(PowerDeviceD0);
        undecided.get();
        told.get();
        EXPECT_EQ(deviceIn(next), u"USB Optical Mouse");
        expectKeptForEver(dropped);
    });
}

TEST_F(DroppedRequest, ARetrieveThatFailsTakesTheServicesRequestAlongWhenThePassGoesOn) {
    inAMachineOfItsOwn([this] {
        startWithService(0);
        const Request dropped = waitForNotification();
        const Request next = waitForNotification();
        failInAdd("WdfIoQueueRetrieveNextRequest", 2, STATUS_NO_MORE_ENTRIES); // cancelled just then
        plug(mouse());
        EXPECT_EQ(deviceIn(next), u"USB Optical Mouse");
        EXPECT_THAT(addOf("mouse").log, Contains("ERROR Failed to retrieve the next available I/O request for "
                                                 "m_internalIoctlQueue, status = 0x8000001a"));
        expectKeptForEver(dropped);
    });
}

} // namespace
} // namespace behaviour
