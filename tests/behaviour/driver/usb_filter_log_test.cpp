#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// All lines of whole adds, in order.
class UsbFilterLog : public DriverTest {
  protected:
    void startWith(const Policy &policy) {
        apply(policy);
        start();
    }
    static Lines belowRootHub() { return lines::searched({"\\Driver\\USBHUB3"}); }
};

TEST_F(UsbFilterLog, AllowedFlashDrive) {
    const Policy policy = allowing({u"VID_0781&PID_5581"});
    startWith(policy);
    plug(flashDrive());
    const auto ids = idsOf(flashDrive());
    EXPECT_EQ(addOf("stick").log, lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                                             lines::judged(policy, ids, u"A20054F50D478A23", true),
                                             lines::removedFromRegister(ids), lines::notified(2, 2, u"Ultra")));
}

TEST_F(UsbFilterLog, BlockedFlashDrive) {
    const Policy policy;
    startWith(policy);
    plug(flashDrive());
    const auto ids = idsOf(flashDrive());
    EXPECT_EQ(addOf("stick").log,
              lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                         lines::judged(policy, ids, u"A20054F50D478A23", false), lines::blocked(ids),
                         lines::removedFromRegister(ids), lines::notified(1, 3, u"Ultra")));
}

TEST_F(UsbFilterLog, ReadOnlyFlashDrive) {
    const Policy policy = readOnly({u"VID_0781&PID_5581"});
    startWith(policy);
    EXPECT_TRUE(plug(flashDrive()).started());
    const auto ids = idsOf(flashDrive());
    EXPECT_EQ(addOf("stick").log, lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                                             lines::judged(policy, ids, u"A20054F50D478A23", false, true),
                                             Lines{"INFO Check request ReadOnlyUnlisted, result = 0"},
                                             lines::removedFromRegister(ids), lines::notified(3, 4, u"Ultra")));
}

TEST_F(UsbFilterLog, ReadOnlyPhone) {
    const Policy policy = readOnly({u"*"});
    startWith(policy);
    EXPECT_TRUE(plug(phone()).started());
    const auto ids = idsOf(phone());
    EXPECT_EQ(addOf("phone").log,
              lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                         lines::judged(policy, ids, u"8A2X0RDFR", false, true),
                         Lines{"INFO Check request ReadOnlyUnlisted, result = 1",
                               "INFO Process rules, UsbMode::ReadOnly, mtp or ptp, name = \\Driver\\USBHUB3"},
                         lines::removedFromRegister(ids), lines::notified(3, 5, u"Pixel 6")));
    EXPECT_EQ(takeLog().back(), addOf("phone").log.back()) << "the start of the device logs nothing";
}

TEST_F(UsbFilterLog, ReadOnlyBoardIsBlocked) {
    const Policy policy = readOnly({u"VID_04B4&PID_8613"});
    startWith(policy);
    plug(vendorBoard());
    const auto ids = idsOf(vendorBoard());
    EXPECT_EQ(addOf("board").log,
              lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                         lines::judged(policy, ids, u"", false, true),
                         Lines{"INFO Check request ReadOnlyUnlisted, result = 0",
                               "INFO Process rules, UsbMode::ReadOnly, mass storage, block later, name = "
                               "\\Driver\\USBHUB3"},
                         lines::removedFromRegister(ids), lines::notified(1, 4, u"EZ-USB FX2")));
}

TEST_F(UsbFilterLog, MouseIsNotFilterable) {
    const Policy policy;
    startWith(policy);
    EXPECT_TRUE(plug(mouse()).started());
    const auto ids = idsOf(mouse());
    EXPECT_EQ(addOf("mouse").log, lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                                             lines::notFilterable(), lines::notified(2, 1, u"USB Optical Mouse")));
}

TEST_F(UsbFilterLog, CompositeKeyboardAndItsFunctions) {
    const Policy policy;
    startWith(policy);
    EXPECT_TRUE(plug(keyboard()).started());
    const sim::DeviceDescription parent = keyboard();
    EXPECT_EQ(addOf("keyboard").log, lines::all(lines::created(idsOf(parent)), belowRootHub(), lines::reload(policy),
                                                lines::notFilterable(), lines::notified(2, 1, u"USB Keyboard")));
    for (const sim::DeviceDescription &function : parent.children) {
        EXPECT_EQ(addOf(function.name).log,
                  lines::all(lines::created(idsOf(function)),
                             lines::searched({"\\Driver\\usbccgp", "\\Driver\\USBHUB3"}), lines::reload(policy),
                             lines::notFilterable(), lines::notified(2, 1, u"USB Keyboard")));
    }
}

TEST_F(UsbFilterLog, HubBelowTheRootHub) {
    const Policy policy;
    startWith(policy);
    const sim::DeviceDescription hub = sim::usbHub("hub", {0x05E3, 0x0610, 0x9304, u"GenesysLogic", u"USB2.1 Hub", {}});
    EXPECT_TRUE(plug(hub).started());
    EXPECT_EQ(addOf("hub").log, lines::all(lines::created(idsOf(hub)), belowRootHub(), lines::reload(policy),
                                           lines::notFilterable(), lines::notified(2, 1, u"USB2.1 Hub")));
}

TEST_F(UsbFilterLog, WithoutControlDeviceNobodyIsNotified) {
    const Policy policy = allowing({u"*"});
    apply(policy);
    load();
    plug(flashDrive());
    const auto ids = idsOf(flashDrive());
    EXPECT_EQ(addOf("stick").log,
              lines::all(lines::created(ids), belowRootHub(), lines::reload(policy),
                         Lines{"INFO retreiveUsbMode Control device is not avaliable so it will be blocked"},
                         lines::blocked(ids), lines::removedFromRegister(ids)));
    EXPECT_EQ(filterOf("stick").mode, 1U);
    plug(mouse());
    EXPECT_EQ(addOf("mouse").log, lines::all(lines::created(idsOf(mouse())), belowRootHub(), lines::reload(policy),
                                             lines::notFilterable()));
}

TEST_F(UsbFilterLog, BelowInfoAnAddLeavesNoTrace) {
    setParameter(u"LogLevel", 3);
    startWith(readOnly({u"*"}));
    plug(flashDrive());
    plug(phone());
    plug(vendorBoard());
    machine().unplug(deviceNode("stick"));
    unload();
    EXPECT_THAT(takeLog(), testing::IsEmpty());
    EXPECT_THAT(kernel().files.tempFiles(), testing::IsEmpty());
}

TEST_F(UsbFilterLog, RemovalAndStartLogNothing) {
    startWith({});
    sim::DeviceNode &node = plug(mouse());
    EXPECT_EQ(takeLog(), addOf("mouse").log);
    machine().unplug(node);
    EXPECT_THAT(takeLog(), testing::IsEmpty());
}

} // namespace
} // namespace behaviour
