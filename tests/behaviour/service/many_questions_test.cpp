// Many filters ask at once; calls fail while they do.

#include "service_test.h"

#include "simulator/machine/usb_device.h"
#include "tests/behaviour/support/answering_service.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <random>

namespace behaviour {
namespace {

constexpr unsigned manyDevices = 12;

std::u16string serialOf(unsigned number) {
    const std::string text = "SERIAL" + std::to_string(number);
    return {text.begin(), text.end()};
}

sim::DeviceDescription numberedDrive(unsigned number) {
    return sim::usbFlashDrive("stick " + std::to_string(number),
                              {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", serialOf(number)});
}

using ManyQuestions = ServiceTest;

TEST_F(ManyQuestions, AnsweredOutOfOrderEachReachItsOwnDevice) {
    startWithService();
    std::vector<Request> questions;
    std::vector<Request> decisions;
    std::generate_n(std::back_inserter(questions), manyDevices, [this] { return waitForCallback(); });
    std::generate_n(std::back_inserter(decisions), manyDevices, [this] { return waitForCallback(); });
    machine().rootHub();
    std::map<unsigned, std::future<sim::DeviceNode *>> plugged;
    for (unsigned number = 0; number < manyDevices; ++number) {
        plugged.emplace(number, plugging(numberedDrive(number)));
    }
    std::map<std::u16string, std::uint64_t> asked;
    for (const Request &question : questions) {
        question->await();
        EXPECT_EQ(messageOf(question).mode(), 0U);
        asked[messageOf(question).serialNumber()] = requestIdOf(question);
    }
    ASSERT_EQ(asked.size(), manyDevices);
    std::vector<unsigned> order(manyDevices);
    std::iota(order.begin(), order.end(), 0U);
    std::shuffle(order.begin(), order.end(), std::minstd_rand(7));
    for (const unsigned number : order) {
        EXPECT_EQ(reply(asked.at(serialOf(number)), 1 + number % 3)->status(), STATUS_SUCCESS);
    }
    std::map<std::u16string, std::uint32_t> told;
    for (const Request &decision : decisions) {
        decision->await();
        told[messageOf(decision).serialNumber()] = messageOf(decision).mode();
    }
    for (unsigned number = 0; number < manyDevices; ++number) {
        SCOPED_TRACE(number);
        const std::uint32_t mode = 1 + number % 3;
        EXPECT_EQ(plugged.at(number).get()->started(), mode != 1);
        EXPECT_EQ(filterOf("stick " + std::to_string(number)).mode, mode);
        EXPECT_EQ(told[serialOf(number)], mode);
    }
}

TEST_F(ManyQuestions, TimeOutTogetherWhenNobodyAnswers) {
    startWithService();
    const Request shown[] = {waitForCallback(), waitForCallback()};
    machine().rootHub();
    std::vector<std::future<sim::DeviceNode *>> plugged;
    for (unsigned number = 0; number < 6; ++number) {
        plugged.push_back(plugging(numberedDrive(number)));
    }
    awaitWaitingFilters(6); // two shown, four waiting to be
    shown[0]->await();
    shown[1]->await();
    kernel().clock.set(*kernel().clock.firstTimeOut());
    for (auto &one : plugged) {
        EXPECT_FALSE(one.get()->started());
    }
    for (const Add &add : adds) {
        EXPECT_TRUE(!add.filter || !add.filter->filterable || add.callbackStatus == STATUS_IO_TIMEOUT) << add.device;
    }
    EXPECT_EQ(reply(requestIdOf(shown[0]), 2)->status(), STATUS_NO_MORE_ENTRIES);
    const Request parked = waitForCallback();
    EXPECT_FALSE(parked->isBack()) << "nothing of them is left to be shown";
}

TEST_F(ManyQuestions, EachFailingCallOfAnAnsweredAddMakesTheOutcomeStricterAtMost) {
    startWithService();
    // One parked request: of several, a pass that fails would keep one for ever, and the end of the machine with it.
    const AnsweringService answering(service, handle, 1, [](const MessageBytes &) { return 1U; });
    failEachCallOfAdd([this] {
        const sim::DeviceNode &node = plug(flashDrive());
        const Add &add = addOf("stick");
        EXPECT_TRUE(!node.started() || !add.filter || add.filter->filterable == 0);
        unplug("stick");
    });
    EXPECT_GT(answering.questions(), 50U);
    EXPECT_GT(answering.decisions(), 50U);
}

TEST_F(ManyQuestions, PlugsFromManyThreadsMeetAServiceThatRuns) {
    startWithService();
    machine().rootHub();
    const AnsweringService answering(service, handle, 3, [](const MessageBytes &question) {
        return question.serialNumber().back() % 2 == 0 ? 2U : 1U;
    });
    for (int round = 0; round < 3; ++round) {
        std::vector<std::future<sim::DeviceNode *>> plugged;
        for (unsigned number = 0; number < 8; ++number) {
            plugged.push_back(plugging(numberedDrive(number)));
        }
        for (unsigned number = 0; number < 8; ++number) {
            sim::DeviceNode &node = *plugged[number].get();
            EXPECT_EQ(node.started(), number % 2 == 0) << number;
        }
        for (unsigned number = 0; number < 8; ++number) {
            unplug("stick " + std::to_string(number));
        }
    }
    EXPECT_EQ(answering.questions(), 24U);
}

} // namespace
} // namespace behaviour
