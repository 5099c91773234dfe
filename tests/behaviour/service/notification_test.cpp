// The service is told of decisions; other requests of its, and what becomes of parked ones.

#include "service_test.h"
#include "tests/behaviour/support/driver_state.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

class Notification : public ServiceTest {
  protected:
    /// The rules decide; the service is only told.
    void startToldOnly(const Policy &policy = {}) {
        startWithService(0);
        apply(policy);
    }
    static std::u16string textAt(const Request &told, std::size_t offset) { return messageOf(told).text(offset, 200); }
};

TEST_F(Notification, TellsTheDecisionAndTheDevice) {
    startToldOnly();
    Request told = waitForNotification();
    plug(flashDrive());
    told->await();
    EXPECT_EQ(told->status(), STATUS_SUCCESS);
    EXPECT_EQ(told->information(), 404U);
    const MessageBytes bytes = messageOf(told);
    EXPECT_EQ(bytes.number(0), 1U);
    EXPECT_EQ(textAt(told, 4), u"Ultra");
    EXPECT_EQ(textAt(told, 204), u"USB\\VID_0781&PID_5581&REV_0100\\A20054F50D478A23");
    const std::vector<std::uint8_t> &kept = filterOf("stick").message;
    EXPECT_TRUE(std::equal(kept.begin() + 1074, kept.end(), told->output().begin() + 4)) << "both texts, byte for byte";
}

TEST_F(Notification, ComesForEachDecision) {
    startToldOnly(allowing({u"VID_0781&PID_5581"}));
    Request first = waitForNotification();
    Request second = waitForNotification();
    plug(flashDrive());
    plug(mouse());
    first->await();
    second->await();
    EXPECT_EQ(messageOf(first).number(0), 2U);
    EXPECT_EQ(textAt(second, 4), u"USB Optical Mouse");
}

TEST_F(Notification, IsWrittenInTheLogWithTheService) {
    startToldOnly();
    Request told = waitForNotification();
    plug(flashDrive());
    told->await();
    EXPECT_THAT(
        addOf("stick").log,
        Contains("INFO Send notification, device type = 1, device mode = 1, rule type = 3, m_apiRegistered = 1, "
                 "device name = Ultra"));
    EXPECT_THAT(addOf("stick").log, Contains("INFO fetchRequestsAndProcess ioctl code = 2244612"));
}

TEST_F(Notification, ABufferThatIsTooSmallCostsTheRequestAndTheNextOneIsTold) {
    startToldOnly();
    Request tooSmall = waitForNotification(403);
    Request told = waitForNotification();
    plug(flashDrive());
    tooSmall->await();
    told->await();
    EXPECT_EQ(tooSmall->status(), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(told->status(), STATUS_SUCCESS);
    EXPECT_THAT(addOf("stick").log,
                Contains("ERROR Failed to retrieve the output buffer for I/O requests, status = 0xc0000023"));
}

TEST_F(Notification, ARequestForQuestionsIsShownTheDecisionToo) {
    startToldOnly();
    Request question = waitForCallback();
    plug(flashDrive());
    question->await();
    EXPECT_EQ(messageOf(question).mode(), 1U);
    EXPECT_FALSE(NT_SUCCESS(reply(requestIdOf(question), 2)->status())) << "it was completed at once";
}

TEST_F(Notification, AnUndecidedDeviceIsNotToldOf) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    Request told = waitForNotification();
    reply(requestIdOf(question), 0); // "not decided" is an answer too
    plugged.get();
    EXPECT_EQ(filterOf("stick").mode, 0U);
    EXPECT_FALSE(told->isBack()) << "it went back to its queue";
    told->cancel();
}

TEST_F(Notification, WithoutParkedRequestsWaitsItsTimeAndTheDeviceIsAddedAllTheSame) {
    startToldOnly(allowing({u"*"}));
    auto plugged = plugging(flashDrive());
    EXPECT_TRUE(afterTimeOut(plugged).started());
}

TEST_F(Notification, AFailureToSendItDoesNotFailTheAdd) {
    struct Case {
        const char *routine;
        std::uint64_t nth;
        std::string line;
    };
    startToldOnly(allowing({u"*"}));
    for (const Case &failing :
         {Case{"WdfRequestCreate", 2, "ERROR Failed to prepare notification, status = 0xc000009a"},
          Case{"WdfMemoryCreatePreallocated", 1, "ERROR Failed to prepare notification, status = 0xc000009a"},
          Case{"WdfIoTargetFormatRequestForInternalIoctl", 1,
               "ERROR Failed to send notification request, status = 0xc000009a"}}) {
        SCOPED_TRACE(failing.line);
        failInAdd(failing.routine, failing.nth, STATUS_INSUFFICIENT_RESOURCES);
        sim::DeviceNode &node = plug(flashDrive());
        endFailures();
        EXPECT_TRUE(node.started());
        EXPECT_EQ(addOf("stick").callbackStatus, STATUS_SUCCESS);
        EXPECT_THAT(addOf("stick").log, Contains(failing.line));
        unplug("stick");
    }
}

TEST_F(Notification, PingSucceeds) {
    startToldOnly();
    takeLog();
    Request ping = send(IOCTL_PING);
    EXPECT_EQ(ping->status(), STATUS_SUCCESS);
    EXPECT_EQ(ping->information(), 0U);
    EXPECT_EQ(takeLog(), Lines{"INFO onIoDeviceControl, ioctl code = 2260995"});
}

TEST_F(Notification, AnUnknownCodeIsRefused) {
    startToldOnly();
    for (const std::uint32_t code : {0x224000U, 0x22A008U, 0x226004U}) {
        EXPECT_EQ(send(code, 2000)->status(), STATUS_INVALID_DEVICE_REQUEST) << code;
    }
}

TEST_F(Notification, ClosingCancelsWhatIsParked) {
    startToldOnly();
    Request told = waitForNotification();
    Request question = waitForCallback();
    EXPECT_FALSE(told->isBack());
    closeService();
    told->await();
    question->await();
    EXPECT_EQ(told->status(), STATUS_CANCELLED);
    EXPECT_EQ(question->status(), STATUS_CANCELLED);
}

TEST_F(Notification, ARequestCanBeTakenBack) {
    startToldOnly();
    Request told = waitForNotification();
    told->cancel();
    told->await();
    EXPECT_EQ(told->status(), STATUS_CANCELLED);
    Request next = waitForNotification();
    plug(flashDrive());
    next->await();
    EXPECT_EQ(next->status(), STATUS_SUCCESS);
}

TEST_F(Notification, ControlCodesThatCannotBeParkedAreCompleted) {
    startToldOnly();
    takeLog();
    failCall("WdfRequestForwardToIoQueue", 1, STATUS_INSUFFICIENT_RESOURCES);
    Request told = waitForNotification();
    endFailures();
    told->await();
    EXPECT_EQ(told->status(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLog(), Contains("ERROR Failed to request forward to io queue, status = 0xc000009a"));
}

} // namespace
} // namespace behaviour
