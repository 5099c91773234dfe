#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/service_message.h"

namespace behaviour {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Answers of a hub that are cut at every length, longer than asked for, or of other content than they say.
class OddDescriptors : public DriverTest {
  protected:
    OddDescriptors() {
        apply(allowing({u"VID_0781&PID_5581\\A20054F50D478A23"}));
        setParameter(u"LogLevel", 0);
        start();
        device.children.clear();
    }
    sim::UsbDescriptors &usb() { return *device.usb; }
    sim::HubAnswer &serialAnswer() { return usb().stringAnswers[usb().serialIndex]; }
    MessageBytes messageOf() {
        unplug("stick");
        adds.clear();
        plug(device);
        return MessageBytes(filterOf("stick").message);
    }
    bool runs() { return deviceNode("stick").started(); }

    sim::DeviceDescription device = flashDrive();
    const std::u16string serial = u"A20054F50D478A23";
};

TEST_F(OddDescriptors, ConnectionInformationThatIsCutTellsWhatItHolds) {
    for (std::uint32_t length = 0; length <= 40; ++length) {
        SCOPED_TRACE(length);
        usb().connectionInformation.shortenTo = length;
        const MessageBytes message = messageOf();
        EXPECT_EQ(message.deviceType(), 1U);
        EXPECT_EQ(message.vendorId(), length >= 10 ? 0x0781U : length == 9 ? 0x81U : 0U);
        EXPECT_EQ(message.productId(), length >= 12 ? 0x5581U : length == 11 ? 0x81U : 0U);
        EXPECT_EQ(message.manufacturer(), length > 14 ? u"SanDisk" : u"");
        EXPECT_EQ(message.deviceName(), length > 15 ? u"Ultra" : u"");
        EXPECT_EQ(message.serialNumber(), length > 16 ? serial : u"");
        EXPECT_EQ(runs(), length > 16) << "without its serial number the device is not the one that is allowed";
    }
}

TEST_F(OddDescriptors, AConfigurationDescriptorThatIsCutHasNoInterfaces) {
    for (std::uint32_t length = 0; length <= 12; ++length) {
        SCOPED_TRACE(length);
        usb().configurationDescriptor.shortenTo = length;
        const MessageBytes message = messageOf();
        EXPECT_EQ(message.interfaceCount(), length > 4 ? 1U : 0U);
        EXPECT_EQ(message.interfaceNumber(), length > 4 ? 0U : 0xFFFFFFFF);
        EXPECT_EQ(message.serialNumber(), serial);
        EXPECT_TRUE(runs());
    }
}

TEST_F(OddDescriptors, ALanguageListThatIsCutMeansNoStrings) {
    for (std::uint32_t length = 0; length <= 6; ++length) {
        SCOPED_TRACE(length);
        usb().languageList.shortenTo = length;
        // Half a language is another language, which the device does not know.
        EXPECT_EQ(messageOf().serialNumber(), length >= 4 ? serial : u"");
        EXPECT_EQ(runs(), length >= 4);
    }
}

TEST_F(OddDescriptors, AStringThatIsCutEndsThere) {
    const std::uint32_t whole = static_cast<std::uint32_t>(2 + 2 * serial.size());
    for (std::uint32_t length = 0; length <= whole + 2; ++length) {
        SCOPED_TRACE(length);
        serialAnswer().shortenTo = length;
        // Of ASCII the second half of a character is zero, as the driver's buffer is.
        const std::size_t characters = length < 2 ? 0 : (length - 1) / 2;
        EXPECT_EQ(messageOf().serialNumber(), serial.substr(0, characters));
        EXPECT_EQ(runs(), length >= whole - 1);
    }
}

TEST_F(OddDescriptors, AStringOfEveryLengthWithoutAnEndIsReadToItsLastWholeCharacter) {
    for (const std::size_t length : {2, 3, 254, 255, 256, 257, 258, 300, 0xFFFE, 0xFFFF, 0x10000, 0x10001}) {
        SCOPED_TRACE(length);
        Bytes answer(length, 0x41);
        serialAnswer().replace = answer;
        const std::size_t told = std::min<std::size_t>(length, 257) - 2;
        const std::u16string text = messageOf().serialNumber();
        std::u16string expected(told / 2, u'\u4141');
        if (told % 2 != 0 && told < 255) {
            expected += u'\u0041'; // the driver's buffer is zero behind it
        }
        EXPECT_EQ(text, expected.substr(0, 127));
        EXPECT_FALSE(runs());
    }
}

TEST_F(OddDescriptors, LengthBytesAreNotBelieved) {
    for (const std::uint8_t length : {0, 1, 2, 3, 34, 254, 255}) {
        SCOPED_TRACE(int{length});
        Bytes answer{length, 3};
        const Bytes text = bytesOf(serial);
        answer.insert(answer.end(), text.begin(), text.end());
        serialAnswer().replace = answer;
        usb().languageList.replace = Bytes{length, 0xFF, 0x09, 0x04};
        EXPECT_EQ(messageOf().serialNumber(), serial);
        EXPECT_TRUE(runs());
    }
}

TEST_F(OddDescriptors, EachRequestThatFailsLeavesADeviceThatIsJudged) {
    sim::HubAnswer *const answers[] = {&usb().connectionInformation, &usb().configurationDescriptor,
                                       &usb().languageList, &serialAnswer()};
    for (const NTSTATUS status : {STATUS_UNSUCCESSFUL, STATUS_DEVICE_NOT_CONNECTED, STATUS_BUFFER_TOO_SMALL}) {
        for (sim::HubAnswer *answer : answers) {
            answer->failure = status;
            EXPECT_EQ(messageOf().serialNumber(), u"");
            EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
            answer->failure.reset();
        }
    }
    EXPECT_EQ(messageOf().serialNumber(), serial);
    EXPECT_TRUE(runs());
}

TEST_F(OddDescriptors, ConfigurationsOfAnyCountOfInterfacesAreTold) {
    for (const std::uint32_t count : {0U, 1U, 2U, 254U, 255U}) {
        usb().configurationDescriptor.replace = Bytes(300, static_cast<std::uint8_t>(count));
        const MessageBytes message = messageOf();
        EXPECT_EQ(message.interfaceCount(), count);
        EXPECT_EQ(message.interfaceNumber(), count == 1 ? 0U : 0xFFFFFFFF);
    }
}

} // namespace
} // namespace behaviour
