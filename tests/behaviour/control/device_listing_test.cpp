#include "myrtelhaven_service.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

constexpr std::size_t recordBytes = 788;

/// One record of the listing, read by its offsets.
struct Record {
    std::uint32_t valid;
    std::uint32_t vendorId;
    std::uint32_t productId;
    std::u16string serial;
    std::u16string name;
    std::u16string manufacturer;
    bool operator==(const Record &) const = default;
};

void PrintTo(const Record &record, std::ostream *out) {
    *out << record.valid << " " << std::hex << record.vendorId << " " << record.productId << " "
         << lines::utf8(record.serial) << " / " << lines::utf8(record.name) << " / "
         << lines::utf8(record.manufacturer);
}

class DeviceListing : public DriverTest {
  protected:
    sim::DeviceNode &startWithBothHubDrivers() {
        options.hubDrivers = {u"USBHUB3", u"USBHUB"};
        apply(allowing({u"*"}));
        control_ = &start();
        return *control_;
    }
    ControlAnswer list(std::size_t bytes) { return sendControlCode(*control_, IOCTL_GET_PROCESSED_DEVICES, bytes); }

    static Record recordAt(const ControlAnswer &answer, std::size_t index) {
        const std::size_t at = index * recordBytes;
        return {answer.number(at),         answer.number(at + 8),      answer.number(at + 12),
                answer.text(at + 20, 256), answer.text(at + 276, 256), answer.text(at + 532, 256)};
    }

    sim::DeviceNode *control_ = nullptr;
};

const Record stickRecord{1, 0x0781, 0x5581, u"A20054F50D478A23", u"Ultra", u"SanDisk"};

TEST_F(DeviceListing, TellsEachDeviceBelowAHub) {
    startWithBothHubDrivers();
    plug(flashDrive());
    plug(keyboard());
    const ControlAnswer answer = list(4 * recordBytes);
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, 2 * recordBytes) << "functions of a composite device are not below the hub";
    std::vector<Record> records{recordAt(answer, 0), recordAt(answer, 1)};
    const Record keyboardRecord{
        1,          0x046D, 0xC31C, records[0] == stickRecord ? records[1].serial : records[0].serial, u"USB Keyboard",
        u"Logitech"};
    EXPECT_THAT(records, testing::UnorderedElementsAre(stickRecord, keyboardRecord));
}

TEST_F(DeviceListing, LeavesModeAndRuleTypeZero) {
    startWithBothHubDrivers();
    plug(flashDrive());
    const ControlAnswer answer = list(recordBytes);
    EXPECT_EQ(answer.number(4), 0U);
    EXPECT_EQ(answer.number(16), 0U);
}

TEST_F(DeviceListing, LogsItsWay) {
    startWithBothHubDrivers();
    plug(flashDrive());
    takeLog();
    list(2 * recordBytes);
    EXPECT_EQ(takeLog(), (Lines{"INFO onIoDeviceControl, ioctl code = 2252820",
                                "INFO getProcessedDevices driverName = \\Driver\\USBHUB",
                                "INFO getProcessedDevicesInternal driver name = \\Driver\\USBHUB",
                                "INFO getProcessedDevices driverName = \\Driver\\USBHUB3",
                                "INFO getProcessedDevicesInternal driver name = \\Driver\\USBHUB3",
                                "INFO fill device info, instanceId = USB\\VID_0781&PID_5581\\A20054F50D478A23",
                                "INFO Processed devices size = 1"}));
}

TEST_F(DeviceListing, WithoutTheOldHubDriverListsTheOthersDevices) {
    apply(allowing({u"*"}));
    control_ = &start(); // USBHUB3 alone
    plug(flashDrive());
    takeLog();
    const ControlAnswer answer = list(recordBytes);
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, recordBytes);
    EXPECT_EQ(recordAt(answer, 0), stickRecord);
    EXPECT_THAT(takeLog(), testing::Contains("ERROR Failed to enumerate driver devices, status = 0xc0000034"));
}

TEST_F(DeviceListing, WithoutAnyHubDriverIsEmpty) {
    options.hubDrivers = {};
    control_ = &start();
    const ControlAnswer answer = list(recordBytes);
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, 0U);
}

TEST_F(DeviceListing, OneRecordForTwoDevicesIsTooSmall) {
    startWithBothHubDrivers();
    plug(flashDrive());
    plug(otherFlashDrive());
    takeLog();
    const ControlAnswer answer = list(recordBytes);
    EXPECT_EQ(answer.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(answer.information, recordBytes);
    const Lines log = takeLog();
    ASSERT_GE(log.size(), 3U);
    EXPECT_EQ(Lines(log.end() - 3, log.end()), (Lines{"ERROR processedDevices error = STATUS_BUFFER_TOO_SMALL",
                                                      "ERROR Failed to get processed devices info, status = 0xc0000023",
                                                      "INFO Processed devices size = 1"}));
}

TEST_F(DeviceListing, HubsNeverAppear) {
    startWithBothHubDrivers();
    sim::DeviceNode &hub = plug(sim::usbHub("hub", {0x05E3, 0x0610, 0x9226, u"GenesysLogic", u"USB2.1 Hub", {}}));
    plug(flashDrive(), &hub);
    const ControlAnswer answer = list(4 * recordBytes);
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, recordBytes);
    EXPECT_EQ(recordAt(answer, 0), stickRecord);
}

TEST_F(DeviceListing, ABufferBelowOneRecordIsRefused) {
    startWithBothHubDrivers();
    takeLog();
    const ControlAnswer answer = list(recordBytes - 1);
    EXPECT_EQ(answer.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(answer.information, 0U);
    EXPECT_EQ(takeLog(), (Lines{"INFO onIoDeviceControl, ioctl code = 2252820",
                                "ERROR Failed to retrieve output buffer, status = 0xc0000023"}));
}

TEST_F(DeviceListing, BytesBehindTheLastWholeRecordStayZero) {
    startWithBothHubDrivers();
    plug(flashDrive());
    const ControlAnswer answer = list(recordBytes + 100);
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, recordBytes);
}

TEST_F(DeviceListing, AnInstanceIdThatIsNotUnderstoodLeavesAZeroRecord) {
    struct Case {
        std::u16string instanceId;
        std::string error;
    };
    for (const Case &wrong : {Case{u"USB\\VID-0781&PID_5581\\1", "ERROR Failed to get pid"},
                              Case{u"USB\\VID-0781&PID-5581\\2", "ERROR Failed to get vid"},
                              Case{u"USB\\VID_0781-PID_5581\\3", "ERROR Failed to get vid"},
                              Case{u"USB\\VID_0781&PID-5581\\4", "ERROR Failed to get pid"}}) {
        SCOPED_TRACE(lines::utf8(wrong.instanceId));
        if (control_ == nullptr) {
            startWithBothHubDrivers();
        }
        sim::DeviceDescription device = flashDrive();
        device.children.clear();
        device.instanceId = wrong.instanceId;
        plug(device);
        takeLog();
        const ControlAnswer answer = list(recordBytes);
        EXPECT_EQ(answer.status, STATUS_SUCCESS);
        EXPECT_EQ(answer.information, recordBytes) << "it is counted";
        const Lines log = takeLog();
        if (wrong.error == "ERROR Failed to get pid" && wrong.instanceId.find(u"VID-") != std::u16string::npos) {
            // The first underscore is the product's: its number is taken for the vendor's end.
            EXPECT_THAT(log, testing::Contains("ERROR Failed to get vid"));
        } else {
            EXPECT_THAT(log, testing::Contains(wrong.error));
        }
        EXPECT_THAT(log, testing::Contains("ERROR Failed to parse device instanceId"));
        EXPECT_EQ(answer.output, std::vector<std::uint8_t>(recordBytes, 0));
        unplug("stick");
    }
}

TEST_F(DeviceListing, AnUnreadableInstanceIdLeavesAZeroRecord) {
    startWithBothHubDrivers();
    plug(flashDrive());
    takeLog();
    failCall("IoGetDevicePropertyData", 1, STATUS_OBJECT_NAME_NOT_FOUND, true);
    const ControlAnswer answer = list(recordBytes);
    endFailures();
    EXPECT_EQ(answer.information, recordBytes);
    EXPECT_EQ(answer.output, std::vector<std::uint8_t>(recordBytes, 0));
    EXPECT_THAT(takeLog(), testing::Contains("ERROR Failed to get instanseId, status = 0xc0000034"));
}

TEST_F(DeviceListing, LongTextsAreCutAt127Characters) {
    startWithBothHubDrivers();
    sim::DeviceDescription device = flashDrive();
    device.children.clear();
    const std::u16string serial(180, u'S');
    device.instanceId = u"USB\\VID_0781&PID_5581\\" + serial;
    device.busReportedDescription = std::u16string(300, u'N');
    plug(device);
    const Record record = recordAt(list(recordBytes), 0);
    EXPECT_EQ(record.serial, std::u16string(127, u'S'));
    EXPECT_EQ(record.name, std::u16string(127, u'N'));
}

TEST_F(DeviceListing, TheNameIsTheBusReportElseTheDescriptionElseTheFriendlyName) {
    startWithBothHubDrivers();
    sim::DeviceDescription device = flashDrive();
    device.children.clear();
    device.description = u"USB Mass Storage Device";
    device.friendlyName = u"My stick";
    plug(device);
    EXPECT_EQ(recordAt(list(recordBytes), 0).name, u"Ultra");
    unplug("stick");
    device.busReportedDescription.reset();
    plug(device);
    EXPECT_EQ(recordAt(list(recordBytes), 0).name, u"USB Mass Storage Device");
    unplug("stick");
    device.description.reset();
    plug(device);
    EXPECT_EQ(recordAt(list(recordBytes), 0).name, u"My stick");
    unplug("stick");
    device.friendlyName.reset();
    plug(device);
    takeLog();
    EXPECT_EQ(recordAt(list(recordBytes), 0).name, u"");
    EXPECT_THAT(takeLog(), testing::Contains(testing::StartsWith("ERROR Failed to get device name, status = 0x")));
}

TEST_F(DeviceListing, ADeviceWithoutManufacturerStringHasNone) {
    startWithBothHubDrivers();
    plug(vendorBoard());
    takeLog();
    const Record record = recordAt(list(recordBytes), 0);
    EXPECT_EQ(record.valid, 1U);
    EXPECT_EQ(record.manufacturer, u"");
    EXPECT_THAT(takeLog(), testing::Not(testing::Contains(testing::StartsWith("ERROR"))));
}

TEST_F(DeviceListing, AHubThatDoesNotAnswerLeavesTheManufacturerEmpty) {
    startWithBothHubDrivers();
    sim::DeviceDescription device = flashDrive();
    device.children.clear();
    device.usb->connectionInformation.failure = STATUS_DEVICE_NOT_CONNECTED;
    plug(device);
    takeLog();
    const Record record = recordAt(list(recordBytes), 0);
    EXPECT_EQ(record.valid, 1U);
    EXPECT_EQ(record.name, u"Ultra");
    EXPECT_EQ(record.manufacturer, u"");
    EXPECT_THAT(takeLog(), testing::Contains("ERROR Failed to get device manufacturer name, status = 0xc000009d"));
}

TEST_F(DeviceListing, ADeviceWithoutAParentHasNoManufacturer) {
    startWithBothHubDrivers();
    sim::DeviceDescription device = flashDrive();
    device.children.clear();
    device.hasParent = false;
    plug(device);
    takeLog();
    EXPECT_EQ(recordAt(list(recordBytes), 0).manufacturer, u"");
    EXPECT_THAT(takeLog(), testing::Contains("ERROR Failed to get device manufacturer name, status = 0xc0000001"));
}

TEST_F(DeviceListing, EachFailingCallCostsAFieldOrTheListingAndNothingElse) {
    startWithBothHubDrivers();
    plug(flashDrive());
    failEachCall([this] {
        const ControlAnswer answer = list(recordBytes);
        if (answer.status == STATUS_SUCCESS && answer.information != 0) {
            const Record record = recordAt(answer, 0);
            EXPECT_TRUE(record.valid == 0 || record.serial == u"A20054F50D478A23");
        }
    });
    EXPECT_EQ(recordAt(list(recordBytes), 0), stickRecord) << "nothing was left behind";
}

class NotUsbHubText : public DeviceListing {
  protected:
    ControlAnswer read(std::size_t bytes = 20480) {
        return sendControlCode(*control_, IOCTL_GET_NOT_USBHUB_DEVICES, bytes);
    }
    void plugRemote(std::u16string busDriver, int number) {
        sim::DeviceDescription device = mouse();
        device.name = "remote " + std::to_string(number);
        const std::string digits = std::to_string(number);
        device.instanceId = u"USB\\VID_046D&PID_C077\\" + std::u16string(digits.begin(), digits.end());
        device.busDriver = std::move(busDriver);
        plug(device, &machine().rootNode());
    }
};

TEST_F(NotUsbHubText, IsEmptyAtFirst) {
    control_ = &start();
    takeLog();
    const ControlAnswer answer = read();
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, 0U);
    EXPECT_EQ(takeLog(), (Lines{"INFO onIoDeviceControl, ioctl code = 2252824", "INFO Not usbhub devices size = 0"}));
}

TEST_F(NotUsbHubText, TellsADeviceBelowNoHub) {
    control_ = &start();
    plugRemote(u"tsusbhub", 1);
    takeLog();
    const ControlAnswer answer = read();
    const std::u16string expected = u"\\Driver\\tsusbhub->\\Driver\\PnpManager->\n";
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, expected.size() * 2);
    EXPECT_EQ(answer.text(0, answer.information), expected);
    EXPECT_EQ(takeLog().back(), "INFO Not usbhub devices size = " + std::to_string(expected.size()));
}

TEST_F(NotUsbHubText, LongerThanTheBufferIsCutToIt) {
    control_ = &start();
    const std::u16string driver(200, u'd');
    for (int number = 0; number < 60; ++number) { // 60 lines of 229 characters
        plugRemote(driver, number);
    }
    ASSERT_GT(notUsbHubText(machine()).size(), 10240U);
    const ControlAnswer answer = read();
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.information, 10239U * 2);
    EXPECT_EQ(lines::utf8(answer.text(0, answer.information)), notUsbHubText(machine()).substr(0, 10239));
    EXPECT_EQ(read(30000).information, notUsbHubText(machine()).size() * 2) << "a larger buffer holds it all";
}

TEST_F(NotUsbHubText, ASmallerBufferIsRefused) {
    control_ = &start();
    takeLog();
    const ControlAnswer answer = read(20479);
    EXPECT_EQ(answer.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(takeLog().back(), "ERROR Failed to retrieve output buffer, status = 0xc0000023");
}

} // namespace
} // namespace behaviour
