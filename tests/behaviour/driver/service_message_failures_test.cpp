#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"
#include "tests/behaviour/support/service_message.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

/// Filling the message stops at the first thing that can't be had; the decision goes on with what was filled.
class UnfilledMessage : public DriverTest {
  protected:
    UnfilledMessage() {
        apply(allowing({u"VID_0781&PID_5581"}));
        start();
    }
    MessageBytes plugAndRead(const sim::DeviceDescription &device) {
        EXPECT_TRUE(plug(device).started());
        const Add &add = addOf(device.name);
        return MessageBytes(add.filter ? add.filter->message : std::vector<std::uint8_t>{});
    }
    /// Only mode and rule type, which are written in the end.
    void expectOnlyTheDecision(const MessageBytes &message, std::uint32_t mode, std::uint32_t ruleType) {
        EXPECT_EQ(message.mode(), mode);
        EXPECT_EQ(message.ruleType(), ruleType);
        EXPECT_TRUE(message.isZero(0, 12));
        EXPECT_TRUE(message.isZero(16, 1069));
        EXPECT_TRUE(message.isZero(1073, 1474));
    }
};

TEST_F(UnfilledMessage, NoDeviceDescriptorLeavesItZero) {
    sim::DeviceDescription device = flashDrive();
    device.usb->connectionInformation.failure = STATUS_DEVICE_NOT_READY;
    expectOnlyTheDecision(plugAndRead(device), 2, 2);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to fill device info, status = 0xc00000a3"));
    EXPECT_EQ(filterOf("stick").filterable, 1U) << "only the message's flag is not filled";
}

TEST_F(UnfilledMessage, TheLineStandsBetweenReadingAndDeciding) {
    sim::DeviceDescription device = flashDrive();
    device.usb->connectionInformation.failure = STATUS_DEVICE_NOT_READY;
    plugAndRead(device);
    const Policy policy = allowing({u"VID_0781&PID_5581"});
    const auto ids = idsOf(device);
    EXPECT_EQ(addOf("stick").log,
              lines::all(lines::created(ids), lines::searched({"\\Driver\\USBHUB3"}), lines::reload(policy),
                         Lines{"ERROR Failed to fill device info, status = 0xc00000a3"},
                         lines::judged(policy, ids, u"", true), lines::removedFromRegister(ids),
                         Lines{"INFO Send notification, device type = 0, device mode = 2, rule type = 2, "
                               "m_apiRegistered = 0, device name = "}));
}

TEST_F(UnfilledMessage, NoConfigurationDescriptorLeavesItZero) {
    sim::DeviceDescription device = flashDrive();
    device.usb->configurationDescriptor.failure = STATUS_IO_TIMEOUT;
    expectOnlyTheDecision(plugAndRead(device), 2, 2);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to fill device info, status = 0xc00000b5"));
}

TEST_F(UnfilledMessage, ARuleForASerialDoesNotMatchADeviceThatCannotTellIt) {
    apply(allowing({u"VID_0781&PID_5581\\A20054F50D478A23"}));
    sim::DeviceDescription device = flashDrive();
    device.usb->connectionInformation.failure = STATUS_DEVICE_NOT_READY;
    EXPECT_EQ(plug(device).problemCode(), 29U);
    EXPECT_EQ(filterOf("stick").mode, 1U);
}

TEST_F(UnfilledMessage, NoLanguageListMeansNoStrings) {
    sim::DeviceDescription device = flashDrive();
    device.usb->languageList.failure = STATUS_UNSUCCESSFUL;
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.productId(), 0x5581U);
    EXPECT_TRUE(message.isZero(280, 536));
    EXPECT_TRUE(message.isZero(548, 1060));
    EXPECT_EQ(message.description(), u"Ultra");
    EXPECT_EQ(message.identity(), u"USB\\VID_0781&PID_5581&REV_0100\\");
    EXPECT_THAT(addOf("stick").log, Not(Contains(StartsWith("ERROR"))));
}

TEST_F(UnfilledMessage, AnEmptyLanguageListMeansNoStrings) {
    sim::DeviceDescription device = flashDrive();
    device.usb->languages = {};
    EXPECT_EQ(plugAndRead(device).deviceName(), u"");
}

TEST_F(UnfilledMessage, OneStringThatStallsIsEmptyAlone) {
    sim::DeviceDescription device = flashDrive();
    device.usb->stringAnswers[device.usb->productIndex].failure = STATUS_UNSUCCESSFUL;
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.deviceName(), u"");
    EXPECT_EQ(message.manufacturer(), u"SanDisk");
    EXPECT_EQ(message.serialNumber(), u"A20054F50D478A23");
}

TEST_F(UnfilledMessage, NoBusReportedDescriptionLeavesTheIdentityEmptyToo) {
    sim::DeviceDescription device = flashDrive();
    device.busReportedDescription.reset();
    const MessageBytes message = plugAndRead(device);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to fill device info, status = 0xc0000034"));
    EXPECT_EQ(message.deviceName(), u"Ultra");
    EXPECT_EQ(message.classCode(), 8U);
    EXPECT_EQ(message.interfaceCount(), 1U);
    EXPECT_EQ(message.filterable(), 1U);
    EXPECT_EQ(message.mode(), 2U);
    EXPECT_TRUE(message.isZero(1073, 1474));
}

TEST_F(UnfilledMessage, AnEmptyBusReportedDescriptionIsNoFailure) {
    sim::DeviceDescription device = flashDrive();
    device.rawProperties["BusReportedDeviceDesc"] = {{}, {}, 0x12};
    const MessageBytes message = plugAndRead(device);
    EXPECT_THAT(addOf("stick").log, Not(Contains(StartsWith("ERROR"))));
    EXPECT_EQ(message.description(), u"");
    EXPECT_EQ(message.identity(), u"USB\\VID_0781&PID_5581&REV_0100\\A20054F50D478A23");
}

TEST_F(UnfilledMessage, AHubThatCannotBeOpenedLeavesItZero) {
    failInAdd("WdfIoTargetOpen", 2, STATUS_NO_SUCH_DEVICE); // the first is for the capabilities
    expectOnlyTheDecision(plugAndRead(flashDrive()), 2, 2);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to fill device info, status = 0xc000000e"));
}

TEST_F(UnfilledMessage, ADeviceThatFailedEnumerationHasNoDescriptors) {
    sim::DeviceDescription device = flashDrive();
    device.usb.reset();
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.vendorId(), 0U);
    EXPECT_EQ(message.mode(), 2U);
}

} // namespace
} // namespace behaviour
