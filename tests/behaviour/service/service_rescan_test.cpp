// A rescan while the service decides.

#include "service_test.h"

namespace behaviour {
namespace {

class ServiceRescan : public ServiceTest {
  protected:
    ServiceRescan() { options.hubDrivers = {u"USBHUB3", u"USBHUB"}; }
    /// In a thread of its own, which ends when the devices are back.
    std::future<NTSTATUS> rescanning() {
        return std::async(std::launch::async, [this] {
            const Request rescan = send(IOCTL_RESCAN_DEVICES);
            rescan->await();
            machine().settle();
            return rescan->status();
        });
    }
};

TEST_F(ServiceRescan, ShowsADeviceThatRunsAndHasItDecidedAnew) {
    startWithService();
    const Request first = waitForCallback();
    auto plugged = plugging(flashDrive());
    first->await();
    decide(first, 2);
    EXPECT_TRUE(plugged.get()->started());

    const Request shown = waitForCallback();
    const Request question = waitForCallback();
    auto rescanned = rescanning();
    shown->await();
    EXPECT_EQ(messageOf(shown).mode(), 2U) << "as it runs; nothing is asked";
    EXPECT_EQ(reply(requestIdOf(shown), 2)->status(), STATUS_NO_MORE_ENTRIES);
    question->await();
    EXPECT_EQ(messageOf(question).mode(), 0U);
    decide(question, 1);
    EXPECT_EQ(rescanned.get(), STATUS_SUCCESS);
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
}

TEST_F(ServiceRescan, AsksAboutDevicesThatWereThereBeforeTheControlDevice) {
    setParameter(u"CallbackMode", 1);
    apply(allowing({u"*"}));
    load();
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U) << "without the control device neither rules nor service decide";
    control_ = &machine().plugControlNode();
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);

    const Request question = waitForCallback();
    auto rescanned = rescanning();
    question->await();
    EXPECT_EQ(messageOf(question).mode(), 0U);
    decide(question, 2);
    EXPECT_EQ(rescanned.get(), STATUS_SUCCESS);
    EXPECT_TRUE(deviceNode("stick").started());
}

} // namespace
} // namespace behaviour
