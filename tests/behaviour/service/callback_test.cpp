// The service is asked for a device's mode.

#include "service_test.h"
#include "tests/behaviour/support/driver_state.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;

using Callback = ServiceTest;

TEST_F(Callback, TheServicesAnswerDecides) {
    struct Case {
        std::uint32_t answer;
        std::uint32_t mode;
        bool runs;
    };
    startWithService();
    for (const Case &answered : {Case{1, 1, false}, Case{2, 2, true}, Case{3, 3, true}, Case{9, 9, true}}) {
        SCOPED_TRACE(answered.answer);
        Request question = waitForCallback();
        auto plugged = plugging(flashDrive());
        question->await();
        decide(question, answered.answer);
        EXPECT_EQ(plugged.get()->started(), answered.runs);
        EXPECT_EQ(filterOf("stick").mode, answered.mode) << "an unknown number is taken as it stands";
        unplug("stick");
    }
}

TEST_F(Callback, TheQuestionIsTheDevicesMessage) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    EXPECT_EQ(question->status(), STATUS_SUCCESS);
    EXPECT_EQ(question->information(), 1073U);
    const MessageBytes message = messageOf(question);
    EXPECT_NE(requestIdOf(question), 0U);
    EXPECT_EQ(message.deviceType(), 1U);
    EXPECT_EQ(message.mode(), 0U);
    EXPECT_EQ(message.vendorId(), 0x0781U);
    EXPECT_EQ(message.productId(), 0x5581U);
    EXPECT_EQ(message.release(), u"100");
    EXPECT_EQ(message.serialNumber(), u"A20054F50D478A23");
    EXPECT_EQ(message.classCode(), 0x08U);
    EXPECT_EQ(message.deviceName(), u"Ultra");
    EXPECT_EQ(message.manufacturer(), u"SanDisk");
    EXPECT_EQ(message.filterable(), 1U);
    EXPECT_EQ(message.ruleType(), 0U) << "decided later";
    decide(question, 2);
    plugged.get();
    // All that the service saw but the request id and the decision is what the filter keeps.
    const std::vector<std::uint8_t> &kept = filterOf("stick").message;
    EXPECT_TRUE(std::equal(kept.begin() + 16, kept.begin() + 1068, question->output().begin() + 16));
}

TEST_F(Callback, IsLoggedStepByStep) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    decide(question, 2);
    plugged.get();
    Lines steps;
    for (const std::string &line : addOf("stick").log) {
        if (line.find("allback") != std::string::npos || line.find("ioctl code") != std::string::npos) {
            steps.push_back(line);
        }
    }
    EXPECT_EQ(steps,
              (Lines{"INFO retreiveUsbMode Callback mode is avaliable so try to get usb mode from there",
                     "INFO Send callback, m_apiRegistered = 1", "INFO onIoInternalDeviceControl, ioctl code = 2269188",
                     "INFO fetchRequestsAndProcess ioctl code = 2252808",
                     "INFO onIoDeviceControl, ioctl code = 2244612", "INFO onIoDeviceControl, ioctl code = 2269188",
                     "INFO Send callback, mode = 2", "INFO onIoInternalDeviceControl, ioctl code = 2269192",
                     "INFO fetchRequestsAndProcess ioctl code = 2244612"}));
}

TEST_F(Callback, AQuestionWaitsForAServiceThatParksLater) {
    startWithService();
    auto plugged = plugging(flashDrive());
    Request question = waitForCallback();
    question->await();
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(Callback, WithoutAnAnswerInTimeTheAddFails) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    EXPECT_FALSE(afterTimeOut(plugged).started());
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_IO_TIMEOUT);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to send ioctl request, status = 0xc00000b5"));
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to process rules, status = 0xc00000b5"));
    takeLog();
    Request late = reply(requestIdOf(question), 2);
    EXPECT_FALSE(NT_SUCCESS(late->status())) << "nothing waits for it any more";
    EXPECT_THAT(takeLog(), Contains(testing::StartsWith("ERROR Failed to find pending request, status = 0x")));
}

TEST_F(Callback, TheConfiguredTimeCounts) {
    setParameter(u"CallbackTimeout", 7);
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    letTimePass(6);
    EXPECT_FALSE(isDone(plugged));
    EXPECT_FALSE(afterTimeOut(plugged, 7).started());
}

TEST_F(Callback, AServiceThatNeverParksCostsTheTimeToo) {
    startWithService();
    auto plugged = plugging(flashDrive());
    afterTimeOut(plugged);
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_IO_TIMEOUT);
}

TEST_F(Callback, WithTimeoutZeroItWaitsForEver) {
    setParameter(u"CallbackTimeout", 0);
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    letTimePass(1'000'000);
    EXPECT_FALSE(isDone(plugged));
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
}

TEST_F(Callback, AReplyWithAnUnknownIdChangesNothing) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    EXPECT_FALSE(NT_SUCCESS(reply(requestIdOf(question) + 1, 2)->status()));
    EXPECT_FALSE(NT_SUCCESS(reply(0, 2)->status()));
    EXPECT_FALSE(isDone(plugged));
    decide(question, 1);
    EXPECT_FALSE(NT_SUCCESS(reply(requestIdOf(question), 2)->status())) << "a second reply to the same question";
    EXPECT_FALSE(plugged.get()->started());
}

TEST_F(Callback, AReplyThatIsTooShortIsRefused) {
    startWithService();
    takeLog();
    Request answer = send(IOCTL_CALLBACK_REPLY, 0, std::vector<std::uint8_t>(15));
    EXPECT_EQ(answer->status(), STATUS_BUFFER_TOO_SMALL);
    EXPECT_THAT(takeLog(), Contains("ERROR Failed to retrieve input buffer, status = 0xc0000023"));
}

TEST_F(Callback, AQuestionThatDoesNotFitTheBufferWaitsForTheNext) {
    startWithService();
    Request tooSmall = waitForCallback(1072);
    auto plugged = plugging(flashDrive());
    tooSmall->await();
    EXPECT_EQ(tooSmall->status(), STATUS_BUFFER_TOO_SMALL);
    Request question = waitForCallback();
    question->await();
    EXPECT_EQ(question->information(), 1073U);
    decide(question, 2);
    EXPECT_TRUE(plugged.get()->started());
    EXPECT_THAT(addOf("stick").log,
                Contains("ERROR Failed to retrieve the output buffer for I/O requests, status = 0xc0000023"));
}

TEST_F(Callback, SeveralQuestionsAreAnsweredInAnyOrder) {
    startWithService();
    Request first = waitForCallback();
    Request second = waitForCallback();
    auto one = plugging(flashDrive());
    auto other = plugging(otherFlashDrive());
    first->await();
    second->await();
    const auto answerFor = [](const Request &shown) {
        return messageOf(shown).serialNumber() == u"A20054F50D478A23" ? 2U : 1U;
    };
    decide(second, answerFor(second));
    decide(first, answerFor(first));
    EXPECT_TRUE(one.get()->started());
    EXPECT_FALSE(other.get()->started());
}

TEST_F(Callback, AServiceThatDiesLeavesTheQuestionToItsTime) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    closeService();
    EXPECT_FALSE(isDone(plugged));
    EXPECT_FALSE(afterTimeOut(plugged).started());
    unplug("stick");
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U) << "without a service the rules decide";
}

TEST_F(Callback, WithoutAServiceTheRulesDecide) {
    startWithService();
    closeService();
    apply(allowing({u"*"}));
    EXPECT_TRUE(plug(flashDrive()).started());
    EXPECT_THAT(addOf("stick").log, Contains("INFO Try to get usb mode from rule storage"));
}

TEST_F(Callback, WhatIsNotFilteredIsNotAsked) {
    startWithService();
    Request question = waitForCallback();
    EXPECT_TRUE(plug(mouse()).started());
    // Its notification comes instead: shown, with the decision in it, and never to be answered.
    question->await();
    EXPECT_EQ(messageOf(question).mode(), 2U);
    EXPECT_FALSE(NT_SUCCESS(reply(requestIdOf(question), 1)->status()));
}

TEST_F(Callback, EachFailingStepFailsTheAddAndNamesItself) {
    struct Case {
        const char *routine;
        std::uint64_t nth; ///< calls before it serve other purposes
        std::string line;
    };
    startWithService();
    for (const Case &failing :
         {Case{"WdfRequestCreate", 2, "ERROR Failed to create request, status = 0xc000009a"},
          Case{"WdfMemoryCreatePreallocated", 1, "ERROR Failed to alloc memory, status = 0xc000009a"},
          Case{"WdfMemoryCreatePreallocated", 2, "ERROR Failed to preallocate memory, status = 0xc000009a"},
          Case{"WdfIoTargetFormatRequestForInternalIoctl", 1,
               "ERROR Failed to build ioctl request, status = 0xc000009a"}}) {
        SCOPED_TRACE(failing.line);
        failInAdd(failing.routine, failing.nth, STATUS_INSUFFICIENT_RESOURCES);
        sim::DeviceNode &node = plug(flashDrive());
        endFailures();
        EXPECT_FALSE(node.started());
        EXPECT_EQ(addOf("stick").callbackStatus, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THAT(addOf("stick").log, Contains(failing.line));
        unplug("stick");
    }
}

TEST_F(Callback, APairingThatCannotTakeARequestTriesAgain) {
    startWithService();
    const char *const lines[] = {
        "ERROR Failed to retrieve the next available I/O request for m_ioctlQueue, status = 0xc000009a",
        "ERROR Failed to retrieve the next available I/O request for m_internalIoctlQueue, status = 0xc000009a"};
    for (std::uint64_t nth = 1; nth <= 2; ++nth) {
        SCOPED_TRACE(lines[nth - 1]);
        Request question = waitForCallback();
        failInAdd("WdfIoQueueRetrieveNextRequest", nth, STATUS_INSUFFICIENT_RESOURCES);
        auto plugged = plugging(flashDrive());
        question->await();
        EXPECT_EQ(question->information(), 1073U);
        endFailures();
        decide(question, 2);
        EXPECT_TRUE(plugged.get()->started());
        EXPECT_THAT(addOf("stick").log, Contains(lines[nth - 1]));
        unplug("stick");
    }
}

TEST_F(Callback, APairingThatCannotGoOnFailsTheQuestion) {
    struct Case {
        const char *routine;
        std::uint64_t nth;
        std::string line;
    };
    startWithService();
    for (const Case &failing :
         {Case{"WdfRequestRetrieveInputBuffer", 1,
               "ERROR Failed to retrieve the input buffer for I/O requests, status = 0xc000009a"},
          Case{"WdfRequestForwardToIoQueue", 1, "ERROR Failed to request forward to io queue, status = 0xc000009a"},
          Case{"WdfRequestForwardToIoQueue", 2,
               "ERROR Failed to requeue an I/O request to one of the calling driver's I/O queues m_pendingQueue, "
               "status = 0xc000009a"}}) {
        SCOPED_TRACE(failing.line);
        Request question = waitForCallback();
        failInAdd(failing.routine, failing.nth, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_FALSE(plug(flashDrive()).started());
        endFailures();
        EXPECT_EQ(addOf("stick").callbackStatus, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THAT(addOf("stick").log, Contains(failing.line));
        unplug("stick");
        question->cancel();
    }
}

TEST_F(Callback, AReplyThatCannotBeHandedOnFailsTheQuestion) {
    startWithService();
    Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    failCall("WdfRequestRetrieveOutputBuffer", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(reply(requestIdOf(question), 2)->status(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(plugged.get()->started());
    endFailures();
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to retrieve output buffer, status = 0xc000009a"));
    EXPECT_EQ(addOf("stick").callbackStatus, STATUS_INSUFFICIENT_RESOURCES);
}

} // namespace
} // namespace behaviour
