#include "tests/behaviour/support/service_message.h"

#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// What the message to the service holds, byte by byte.
class FilledMessage : public DriverTest {
  protected:
    FilledMessage() {
        apply({});
        start();
    }
    MessageBytes plugAndRead(const sim::DeviceDescription &device) {
        if (sim::DeviceNode *before = machine().find(device.name)) {
            machine().unplug(*before);
        }
        plug(device);
        const Add &add = addOf(device.name);
        return MessageBytes(add.filter ? add.filter->message : std::vector<std::uint8_t>{});
    }
    static std::vector<std::uint8_t> textDescriptor(std::u16string_view text) {
        std::vector<std::uint8_t> bytes = bytesOf(text);
        bytes.insert(bytes.begin(), {static_cast<std::uint8_t>(bytes.size() + 2), 0x03});
        return bytes;
    }
};

TEST_F(FilledMessage, OfAnAllowedFlashDrive) {
    apply(allowing({u"VID_0781&PID_5581"}));
    const MessageBytes message = plugAndRead(flashDrive());
    EXPECT_TRUE(message.isZero(0, 8)) << "the request id";
    EXPECT_EQ(message.deviceType(), 1U);
    EXPECT_EQ(message.mode(), 2U);
    EXPECT_EQ(message.vendorId(), 0x0781U);
    EXPECT_EQ(message.productId(), 0x5581U);
    EXPECT_EQ(message.release(), u"100");
    EXPECT_EQ(message.serialNumber(), u"A20054F50D478A23");
    EXPECT_EQ(message.classCode(), 0x08U);
    EXPECT_EQ(message.subclassCode(), 0x06U);
    EXPECT_EQ(message.protocolCode(), 0x50U);
    EXPECT_EQ(message.deviceName(), u"Ultra");
    EXPECT_EQ(message.manufacturer(), u"SanDisk");
    EXPECT_EQ(message.interfaceNumber(), 0U);
    EXPECT_EQ(message.interfaceCount(), 1U);
    EXPECT_EQ(message.filterable(), 1U);
    EXPECT_EQ(message.ruleType(), 2U);
    EXPECT_EQ(message.byte(1073), 0U);
    EXPECT_EQ(message.description(), u"Ultra");
    EXPECT_EQ(message.identity(), u"USB\\VID_0781&PID_5581&REV_0100\\A20054F50D478A23");
    // What follows a text in its field is zero.
    EXPECT_TRUE(message.isZero(24 + 2 * 3, 280));
    EXPECT_TRUE(message.isZero(280 + 2 * 16, 536));
    EXPECT_TRUE(message.isZero(548 + 2 * 5, 804));
    EXPECT_TRUE(message.isZero(804 + 2 * 7, 1060));
    EXPECT_TRUE(message.isZero(1074 + 2 * 5, 1274));
    EXPECT_TRUE(message.isZero(1274 + 2 * 47, 1474));
}

TEST_F(FilledMessage, OfABlockedBoardWithoutSerialNumber) {
    const MessageBytes message = plugAndRead(vendorBoard());
    EXPECT_EQ(message.mode(), 1U);
    EXPECT_EQ(message.ruleType(), 3U);
    EXPECT_EQ(message.release(), u"a001");
    EXPECT_EQ(message.serialNumber(), u"");
    EXPECT_EQ(message.manufacturer(), u"");
    EXPECT_EQ(message.classCode(), 0xFFU);
    EXPECT_EQ(message.identity(), u"USB\\VID_04B4&PID_8613&REV_A001\\");
}

TEST_F(FilledMessage, OfADeviceThatIsNotFilterable) {
    const MessageBytes message = plugAndRead(mouse());
    EXPECT_EQ(message.filterable(), 0U);
    EXPECT_EQ(message.mode(), 2U);
    EXPECT_EQ(message.ruleType(), 1U);
}

TEST_F(FilledMessage, ModeAndRuleTypeOfEachOutcome) {
    apply(readOnly({u"VID_0781&PID_5581"}));
    MessageBytes message = plugAndRead(flashDrive());
    EXPECT_EQ(message.mode(), 3U);
    EXPECT_EQ(message.ruleType(), 4U);
    apply(readOnly({u"*"}));
    message = plugAndRead(flashDrive());
    EXPECT_EQ(message.mode(), 3U);
    EXPECT_EQ(message.ruleType(), 5U);
    message = plugAndRead(vendorBoard()); // blocked, being neither storage nor a media device
    EXPECT_EQ(message.mode(), 1U);
    EXPECT_EQ(message.ruleType(), 5U);
    apply(readOnly({u"VID_04B4"}));
    message = plugAndRead(vendorBoard());
    EXPECT_EQ(message.mode(), 1U);
    EXPECT_EQ(message.ruleType(), 3U) << "the rule has no wildcard behind the vendor";
    apply(readOnly({u"VID_04B4*"}));
    message = plugAndRead(vendorBoard());
    EXPECT_EQ(message.mode(), 1U);
    EXPECT_EQ(message.ruleType(), 4U);
}

TEST_F(FilledMessage, TheReleaseIsUnpaddedLowerCaseHexadecimal) {
    const std::pair<std::uint16_t, const char16_t *> releases[] = {
        {0x0000, u"0"}, {0x0001, u"1"}, {0x0010, u"10"}, {0x0A0B, u"a0b"}, {0xFFFF, u"ffff"}, {0x1000, u"1000"}};
    for (const auto &[release, text] : releases) {
        sim::DeviceDescription device = mouse();
        device.usb->release = release;
        EXPECT_EQ(plugAndRead(device).release(), text);
    }
}

TEST_F(FilledMessage, ClassCodesComeFromTheFirstCompatibleIdInOneOfTheTwoForms) {
    struct Case {
        std::vector<std::u16string> ids;
        std::uint32_t codes[3];
    } const cases[] = {
        {{u"USB\\Class_e0&SubClass_01&Prot_03"}, {0xE0, 1, 3}},
        {{u"usb\\class_E0&subclass_0A&prot_fF"}, {0xE0, 0x0A, 0xFF}},
        {{u"USB\\DevClass_EF&SubClass_02&Prot_01"}, {0xEF, 2, 1}},
        {{u"USB\\MS_COMP_MTP", u"USB\\Class_06&SubClass_01&Prot_02", u"USB\\Class_08&SubClass_06&Prot_50"}, {6, 1, 2}},
        {{u"USB\\Class_03&SubClass_01", u"USB\\Class_03"}, {0, 0, 0}},
        {{u"USB\\Class_003&SubClass_01&Prot_02"}, {0, 0, 0}},
        {{u"XUSB\\Class_03&SubClass_01&Prot_02"}, {0, 0, 0}},
        {{u"USB\\Class_zz&SubClass_06&Prot_50"}, {0, 6, 0x50}},
        {{u"USB\\Class_08&SubClass_06&Prot_50x"}, {0, 0, 0}},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(lines::list(one.ids));
        sim::DeviceDescription device = mouse();
        device.compatibleIds = one.ids;
        const MessageBytes message = plugAndRead(device);
        EXPECT_EQ(message.classCode(), one.codes[0]);
        EXPECT_EQ(message.subclassCode(), one.codes[1]);
        EXPECT_EQ(message.protocolCode(), one.codes[2]);
    }
}

TEST_F(FilledMessage, InterfaceNumberAndCountOfASingleInterface) {
    const MessageBytes message = plugAndRead(mouse());
    EXPECT_EQ(message.interfaceNumber(), 0U);
    EXPECT_EQ(message.interfaceCount(), 1U);
}

TEST_F(FilledMessage, InterfaceNumberAndCountOfACompositeDevice) {
    MessageBytes message = plugAndRead(keyboard());
    EXPECT_EQ(message.interfaceNumber(), 0xFFFFFFFFU);
    EXPECT_EQ(message.interfaceCount(), 2U);
    sim::DeviceDescription device = keyboard();
    device.usb->interfaceCount = 1;
    message = plugAndRead(device);
    EXPECT_EQ(message.interfaceNumber(), 0xFFFFFFFFU);
    EXPECT_EQ(message.interfaceCount(), 255U);
}

TEST_F(FilledMessage, InterfaceNumberAndCountOfAFunction) {
    sim::DeviceDescription device = keyboard();
    plug(device);
    MessageBytes message(filterOf("keyboard consumer").message);
    EXPECT_EQ(message.interfaceNumber(), 1U);
    EXPECT_EQ(message.interfaceCount(), 2U);
    machine().unplug(deviceNode("keyboard"));
    device.usb->interfaceCount = 1;
    plug(device);
    message = MessageBytes(filterOf("keyboard consumer").message);
    EXPECT_EQ(message.interfaceNumber(), 1U);
    EXPECT_EQ(message.interfaceCount(), 255U);
}

TEST_F(FilledMessage, SeveralInterfacesWithoutANumberStayWithoutOne) {
    for (const std::uint8_t count : {0, 2, 254, 255}) {
        sim::DeviceDescription device = mouse();
        device.usb->interfaceCount = 1;
        std::vector<std::uint8_t> configuration{9, 2, 9, 0, count, 1, 0, 0x80, 50};
        device.usb->configurationDescriptor.replace = configuration;
        const MessageBytes message = plugAndRead(device);
        EXPECT_EQ(message.interfaceNumber(), 0xFFFFFFFFU);
        EXPECT_EQ(message.interfaceCount(), count);
    }
}

TEST_F(FilledMessage, TheInterfaceNumberIsHexadecimal) {
    const std::pair<const char16_t *, std::uint32_t> ids[] = {
        {u"USB\\VID_046D&PID_C077&MI_0A", 10},        {u"USB\\VID_046D&PID_C077&MI_fF", 255},
        {u"USB\\VID_046D&PID_C077&MI_ZZ", 0},         {u"USB\\VID_046D&PID_C077&mi_01", 0xFFFFFFFF},
        {u"USB\\VID_046D&PID_C077&MI_1", 0xFFFFFFFF}, {u"USB\\VID_046D&PID_C077&MI_01&X", 0xFFFFFFFF}};
    for (const auto &[id, number] : ids) {
        SCOPED_TRACE(lines::utf8(id));
        sim::DeviceDescription device = keyboard();
        device.children[0].hardwareIds = {id};
        device.children.resize(1);
        plugAndRead(device);
        EXPECT_EQ(MessageBytes(filterOf("keyboard keys").message).interfaceNumber(), number);
    }
}

TEST_F(FilledMessage, StringsAreCutAt127Characters) {
    const std::u16string most(127, u'x');
    sim::DeviceDescription device = mouse();
    for (const std::uint8_t index : {1, 2, 3}) {
        device.usb->stringAnswers[index].replace = textDescriptor(std::u16string(126, u'x')); // all that bLength counts
        device.usb->stringAnswers[index].replace->insert(device.usb->stringAnswers[index].replace->end(), {u'x', 0});
    }
    device.usb->manufacturerIndex = 1;
    device.usb->productIndex = 2;
    device.usb->serialIndex = 3;
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.manufacturer(), most);
    EXPECT_EQ(message.deviceName(), most);
    EXPECT_EQ(message.serialNumber(), most);
    EXPECT_EQ(message.identity(), (u"USB\\VID_046D&PID_C077&REV_7200\\" + most).substr(0, 99));
}

TEST_F(FilledMessage, TheTwoTextFieldsAreCutAt99Characters) {
    sim::DeviceDescription device = mouse();
    device.busReportedDescription = std::u16string(99, u'd') + u"e";
    device.hardwareIds = {u"USB\\" + std::u16string(150, u'h'), u"USB\\second"};
    MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.description(), std::u16string(99, u'd'));
    EXPECT_EQ(message.identity(), u"USB\\" + std::u16string(95, u'h'));
    device.busReportedDescription = std::u16string(99, u'd');
    message = plugAndRead(device);
    EXPECT_EQ(message.description(), std::u16string(99, u'd'));
}

TEST_F(FilledMessage, TrailingBlanksOfAStringAreCut) {
    sim::DeviceDescription device = flashDrive();
    device.usb->strings[device.usb->serialIndex] = u"12 AB  ";
    device.usb->strings[device.usb->productIndex] = u"   ";
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.serialNumber(), u"12 AB");
    EXPECT_EQ(message.deviceName(), u"");
    EXPECT_EQ(message.identity(), u"USB\\VID_0781&PID_5581&REV_0100\\12 AB");
}

TEST_F(FilledMessage, StringsAreAskedForInTheFirstLanguageOfTheList) {
    sim::DeviceDescription device = mouse();
    device.usb->languages = {0x0407, 0x0409};
    EXPECT_EQ(plugAndRead(device).deviceName(), u"USB Optical Mouse");
    device.usb->languageList.replace = std::vector<std::uint8_t>{4, 3, 0x11, 0x04}; // a language it does not speak
    EXPECT_EQ(plugAndRead(device).deviceName(), u"");
}

TEST_F(FilledMessage, AHubThatAnswersInAnotherThreadIsWaitedFor) {
    sim::DeviceDescription device = flashDrive();
    device.usb->answersLater = true;
    const MessageBytes message = plugAndRead(device);
    EXPECT_EQ(message.productId(), 0x5581U);
    EXPECT_EQ(message.serialNumber(), u"A20054F50D478A23");
}

} // namespace
} // namespace behaviour
