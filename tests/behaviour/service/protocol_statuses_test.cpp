// Every status that docs/service-protocol.md tells is had from the driver.

#include "protocol_document.h"
#include "service_test.h"

#include <algorithm>

namespace behaviour {
namespace {

constexpr std::string_view statusTable = "### What they come back with";

struct KnownStatus {
    NTSTATUS status;
    const char *windowsError; ///< learn.microsoft.com: RtlNtStatusToDosError
};

const std::map<std::string, KnownStatus> knownStatuses{
    {"STATUS_SUCCESS", {STATUS_SUCCESS, "–"}},
    {"STATUS_ACCESS_DENIED", {STATUS_ACCESS_DENIED, "5"}},
    {"STATUS_OBJECT_NAME_NOT_FOUND", {STATUS_OBJECT_NAME_NOT_FOUND, "2"}},
    {"STATUS_INVALID_DEVICE_REQUEST", {STATUS_INVALID_DEVICE_REQUEST, "1"}},
    {"STATUS_BUFFER_TOO_SMALL", {STATUS_BUFFER_TOO_SMALL, "122"}},
    {"STATUS_CANCELLED", {STATUS_CANCELLED, "995"}},
    {"STATUS_DEVICE_BUSY", {STATUS_DEVICE_BUSY, "170"}},
    {"STATUS_NO_MORE_ENTRIES", {STATUS_NO_MORE_ENTRIES, "259"}},
};

class ToldStatuses;
using Had = std::vector<NTSTATUS>; ///< each way in which it happens

/// A row of the table, and how it comes about.
struct StatusCase {
    std::string request;
    std::string when;
    Had (ToldStatuses::*play)();
};

class ToldStatuses : public ServiceTest, public testing::WithParamInterface<StatusCase> {
  public:
    Had openedFirst() {
        startWithService();
        closeService();
        return {service.open(linkName, handle)};
    }
    Had openedSecond() {
        startWithService();
        sim::UserProcess other{200};
        sim::UserProcess::Handle its = 0;
        return {other.open(linkName, its)};
    }
    Had openedWithoutDevice() {
        startWithService();
        service.die();
        machine().unplug(*control_);
        return {service.open(linkName, handle)};
    }
    Had withoutRight() {
        startWithService();
        sim::UserProcess::Handle reader = 0;
        EXPECT_EQ(service.open(linkName, reader, GENERIC_READ), STATUS_SUCCESS);
        return {service.begin(reader, {IOCTL_PING, {}, 0})->status()};
    }
    Had unknownCode() {
        startWithService();
        return {send(0x224000)->status()};
    }

    Had decisionTold() { return {metByDecision(sizeof(NotificationInfo))}; }
    Had decisionTooLarge() { return {metByDecision(403)}; }
    Had questionAsked() { return {metByQuestion(MYRTELHAVEN_CALLBACK_BYTES)}; }
    Had questionTooLarge() { return {metByQuestion(1072)}; }
    Had notificationGivenUp() { return givenUp(IOCTL_WAIT_NOTIFICATION); }
    Had callbackGivenUp() { return givenUp(IOCTL_WAIT_CALLBACK); }
    Had notificationAfterRemoval() { return afterRemoval(IOCTL_WAIT_NOTIFICATION); }
    Had callbackAfterRemoval() { return afterRemoval(IOCTL_WAIT_CALLBACK); }

    Had replied() {
        ask();
        const Request told = waitForNotification();
        const Request made = reply(requestIdOf(question_), 2);
        told->await();
        plugged_.get();
        return {made->status()};
    }
    Had repliedTooShortly() {
        startWithService();
        return {send(IOCTL_CALLBACK_REPLY, 0, std::vector<std::uint8_t>(15))->status()};
    }
    Had repliedToNothing() {
        ask();
        Had had{reply(requestIdOf(question_) + 1, 2)->status()}; // unknown
        decide(question_, 2);
        plugged_.get();
        had.push_back(reply(requestIdOf(question_), 2)->status()); // answered
        unplug("stick");
        question_ = waitForCallback();
        plugged_ = plugging(flashDrive());
        question_->await();
        afterTimeOut(plugged_);
        had.push_back(reply(requestIdOf(question_), 2)->status()); // too late
        return had;
    }
    Had repliedAsleep() {
        ask();
        setControlPower(PowerDeviceD3);
        const Request made = reply(requestIdOf(question_), 2);
        setControlPower(PowerDeviceD0);
        decide(question_, 2);
        plugged_.get();
        return {made->status()};
    }

    Had listed() { return {listTwo(2 * sizeof(ProcessedDeviceInfo))}; }
    Had listedIntoLessThanOne() { return {listTwo(787)}; }
    Had listedIntoTooFew() { return {listTwo(sizeof(ProcessedDeviceInfo))}; }
    Had textRead() {
        startWithService();
        return {send(IOCTL_GET_NOT_USBHUB_DEVICES, MYRTELHAVEN_NOT_USBHUB_BYTES)->status()};
    }
    Had textTooLarge() {
        startWithService();
        return {send(IOCTL_GET_NOT_USBHUB_DEVICES, 20479)->status()};
    }
    Had pinged() {
        startWithService();
        return {send(IOCTL_PING)->status()};
    }
    Had rescanned() {
        options.hubDrivers = {u"USBHUB3", u"USBHUB"};
        startWithService(0);
        Had had{send(IOCTL_RESCAN_DEVICES)->status()}; // none had to be
        for (int decisions = 0; decisions < 2; ++decisions) {
            waitForNotification();
        }
        plug(flashDrive());
        apply(allowing({u"*"}));
        had.push_back(send(IOCTL_RESCAN_DEVICES)->status());
        machine().settle();
        EXPECT_TRUE(deviceNode("stick").started()) << "its port was cycled";
        return had;
    }
    Had rescannedWithOneHubDriver() {
        startWithService();
        return {send(IOCTL_RESCAN_DEVICES)->status()};
    }
    Had reloaded() {
        startWithService();
        return {send(IOCTL_RELOAD_LOG_SETTINGS)->status()};
    }
    Had reloadedWithoutValue() {
        startWithService();
        registry().deleteValue(sim::Machine::parametersKey(), u"LogLevel");
        const Request made = send(IOCTL_RELOAD_LOG_SETTINGS);
        takeLog();
        send(IOCTL_PING);
        EXPECT_THAT(takeLog(), testing::IsEmpty()) << "the log is off";
        return {made->status()};
    }

  private:
    /// A flash drive is plugged and the question is shown.
    void ask() {
        startWithService();
        question_ = waitForCallback();
        plugged_ = plugging(flashDrive());
        question_->await();
    }
    NTSTATUS metByDecision(std::size_t bytes) {
        startWithService(0);
        const Request parked = waitForNotification(bytes);
        waitForNotification(); // for what the first has no room for
        plug(mouse());
        return parked->status();
    }
    NTSTATUS metByQuestion(std::size_t bytes) {
        startWithService();
        const Request parked = waitForCallback(bytes);
        auto plugged = plugging(flashDrive());
        parked->await();
        const Request shown = parked->status() == STATUS_SUCCESS ? parked : waitForCallback();
        shown->await();
        decide(shown, 2);
        plugged.get();
        return parked->status();
    }
    Had givenUp(std::uint32_t code) {
        startWithService();
        const Request cancelled = send(code, 2000);
        cancelled->cancel();
        const Request ofThread = service.begin(handle, {code, {}, 2000, 7});
        service.endThread(7);
        const Request ofHandle = send(code, 2000);
        closeService();
        return {cancelled->status(), ofThread->status(), ofHandle->status()};
    }
    Had afterRemoval(std::uint32_t code) {
        startWithService();
        machine().unplug(*control_);
        return {send(code, 2000)->status()};
    }
    NTSTATUS listTwo(std::size_t bytes) {
        startWithService(0);
        waitForNotification();
        waitForNotification();
        plug(flashDrive());
        plug(otherFlashDrive());
        return send(IOCTL_GET_PROCESSED_DEVICES, bytes)->status();
    }

    Request question_;
    std::future<sim::DeviceNode *> plugged_;
};

using Statuses = ToldStatuses;

const StatusCase statusCases[] = {
    {"opening", "nobody else has it open", &Statuses::openedFirst},
    {"opening", "another process has it open", &Statuses::openedSecond},
    {"opening", "there is no control device", &Statuses::openedWithoutDevice},
    {"any", "the handle lacks the code's right", &Statuses::withoutRight},
    {"any", "the code is none of the eight", &Statuses::unknownCode},
    {"IOCTL_WAIT_NOTIFICATION", "a decision met it", &Statuses::decisionTold},
    {"IOCTL_WAIT_NOTIFICATION", "a decision met it and 403 bytes are too few", &Statuses::decisionTooLarge},
    {"IOCTL_WAIT_NOTIFICATION", "cancelled, or its thread ended, or its handle was closed",
     &Statuses::notificationGivenUp},
    {"IOCTL_WAIT_NOTIFICATION", "the control device has been removed under the open handle",
     &Statuses::notificationAfterRemoval},
    {"IOCTL_WAIT_CALLBACK", "a question met it", &Statuses::questionAsked},
    {"IOCTL_WAIT_CALLBACK", "a question met it and 1,072 bytes are too few", &Statuses::questionTooLarge},
    {"IOCTL_WAIT_CALLBACK", "cancelled, or its thread ended, or its handle was closed", &Statuses::callbackGivenUp},
    {"IOCTL_WAIT_CALLBACK", "the control device has been removed under the open handle",
     &Statuses::callbackAfterRemoval},
    {"IOCTL_CALLBACK_REPLY", "the question waits for it", &Statuses::replied},
    {"IOCTL_CALLBACK_REPLY", "15 bytes are too few", &Statuses::repliedTooShortly},
    {"IOCTL_CALLBACK_REPLY", "no question with that id waits: unknown, too late, or answered",
     &Statuses::repliedToNothing},
    {"IOCTL_CALLBACK_REPLY", "the control device sleeps", &Statuses::repliedAsleep},
    {"IOCTL_GET_PROCESSED_DEVICES", "every device has a record", &Statuses::listed},
    {"IOCTL_GET_PROCESSED_DEVICES", "787 bytes are less than a record", &Statuses::listedIntoLessThanOne},
    {"IOCTL_GET_PROCESSED_DEVICES", "there are more devices than records", &Statuses::listedIntoTooFew},
    {"IOCTL_GET_NOT_USBHUB_DEVICES", "always", &Statuses::textRead},
    {"IOCTL_GET_NOT_USBHUB_DEVICES", "20,479 bytes are too few", &Statuses::textTooLarge},
    {"IOCTL_PING", "always", &Statuses::pinged},
    {"IOCTL_RESCAN_DEVICES", "every port was cycled, or none had to be", &Statuses::rescanned},
    {"IOCTL_RESCAN_DEVICES", "one of the two hub drivers is not loaded", &Statuses::rescannedWithOneHubDriver},
    {"IOCTL_RELOAD_LOG_SETTINGS", "the value was read", &Statuses::reloaded},
    {"IOCTL_RELOAD_LOG_SETTINGS", "there is no such value: the log is off now", &Statuses::reloadedWithoutValue},
};

void PrintTo(const StatusCase &told, std::ostream *out) {
    *out << told.request << ": " << told.when;
}

TEST_P(ToldStatuses, AreTheDrivers) {
    const StatusCase &told = GetParam();
    const auto rows = document::tableAfter(statusTable);
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto &cells) {
        return cells.at(0) == told.request && cells.at(1) == told.when;
    });
    ASSERT_NE(row, rows.end()) << "the document does not tell it";
    const KnownStatus &known = knownStatuses.at(row->at(2));
    EXPECT_EQ(document::numberOf(row->at(3)), static_cast<std::uint32_t>(known.status));
    EXPECT_EQ(row->at(4), known.windowsError);
    EXPECT_THAT((this->*told.play)(), testing::Each(known.status));
}

INSTANTIATE_TEST_SUITE_P(EachRow, ToldStatuses, testing::ValuesIn(statusCases));

TEST(ProtocolStatuses, AreAllTried) {
    std::vector<std::string> told;
    for (const auto &row : document::tableAfter(statusTable)) {
        told.push_back(row.at(0) + ": " + row.at(1));
    }
    std::vector<std::string> tried;
    for (const StatusCase &one : statusCases) {
        tried.push_back(one.request + ": " + one.when);
    }
    EXPECT_EQ(told, tried);
}

} // namespace
} // namespace behaviour
