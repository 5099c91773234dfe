#include "simulator/kernel/security.h"
#include "simulator/machine/setup_classes.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::StartsWith;

/// What read-only comes to for each kind of device.
class ReadOnlyDevice : public DriverTest {
  protected:
    ReadOnlyDevice() {
        apply(readOnly({u"VID_*", u"*&nothing"}));
        start();
    }
    enum class Outcome { untouched, writeDenied, blocked, failed };
    Outcome outcomeOf(const sim::DeviceDescription &device) {
        sim::DeviceNode &node = plug(device);
        Outcome outcome = Outcome::failed;
        if (node.problemCode() == 29) {
            outcome = Outcome::blocked;
        } else if (node.started()) {
            outcome =
                node.security().find("(D;;0x2;;;WD)") != std::string::npos ? Outcome::writeDenied : Outcome::untouched;
        }
        machine().unplug(node);
        return outcome;
    }
    void expectFilter(std::string_view device, std::uint32_t mode, std::uint32_t ruleType) {
        ASSERT_TRUE(addOf(device).filter);
        EXPECT_EQ(addOf(device).filter->mode, mode);
        EXPECT_EQ(addOf(device).filter->ruleType, ruleType);
    }
};

TEST_F(ReadOnlyDevice, MassStorageIsLeftToItsDisk) {
    sim::DeviceDescription device = flashDrive();
    device.security = usualSecurity;
    sim::DeviceNode &node = plug(device);
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.security(), usualSecurity);
    expectFilter("stick", 3, 4);
    EXPECT_EQ(outcomeOf(sim::usbUaspDisk("fast disk", {0x0781, 0x558C, 0x1012, u"SanDisk", u"Extreme", u"32"})),
              Outcome::untouched);
}

TEST_F(ReadOnlyDevice, MassStorageIsKnownByTheShortCompatibleIdLetterByLetter) {
    sim::DeviceDescription device = flashDrive();
    device.compatibleIds = {u"USB\\Class_08&SubClass_06&Prot_50", u"USB\\class_08"};
    EXPECT_EQ(outcomeOf(device), Outcome::blocked);
    device.compatibleIds = {u"USB\\MS_OTHER", u"USB\\Class_08"};
    EXPECT_EQ(outcomeOf(device), Outcome::untouched);
}

TEST_F(ReadOnlyDevice, MtpAndPtpByMicrosoftsCompatibleIdsAreDeniedWriting) {
    for (const char16_t *id : {u"USB\\MS_COMP_MTP", u"USB\\MS_COMP_PTP", u"MS_COMP_MTP"}) {
        SCOPED_TRACE(lines::utf8(id));
        sim::DeviceDescription device = phone();
        device.classGuid = sim::machine::setup::usbDevice.guid; // the class does not matter here
        device.compatibleIds = {u"USB\\Class_ff&SubClass_ff&Prot_00", u"USB\\Class_ff", id};
        EXPECT_EQ(outcomeOf(device), Outcome::writeDenied);
        expectFilter("phone", 3, 4);
    }
}

TEST_F(ReadOnlyDevice, ThoseIdsAreKnownLetterByLetterAndWhole) {
    for (const char16_t *id : {u"USB\\MS_COMP_mtp", u"USB\\MS_COMP_MTP&X", u"USB\\X\\MS_COMP_MTP"}) {
        SCOPED_TRACE(lines::utf8(id));
        sim::DeviceDescription device = phone();
        device.compatibleIds = {u"USB\\Class_ff", id};
        EXPECT_EQ(outcomeOf(device), Outcome::blocked);
        expectFilter("phone", 1, 4);
    }
}

TEST_F(ReadOnlyDevice, AStillImageDeviceOfThePortableClassIsDeniedWriting) {
    sim::DeviceDescription device = camera();
    EXPECT_EQ(outcomeOf(device), Outcome::writeDenied);
    device.rawProperties["ClassGuid"] = {
        {}, bytesOf(std::u16string_view(u"{EEC5AD98-8080-425F-922A-DABF3DE3F69A}\0", 39)), 0x12};
    EXPECT_EQ(outcomeOf(device), Outcome::writeDenied) << "the class is compared ignoring case";
}

TEST_F(ReadOnlyDevice, AStillImageDeviceOfAnotherClassIsBlocked) {
    sim::DeviceDescription device = camera();
    device.classGuid = sim::machine::setup::image.guid;
    EXPECT_EQ(outcomeOf(device), Outcome::blocked);
    expectFilter("camera", 1, 4);
}

TEST_F(ReadOnlyDevice, AClassThatCannotBeReadIsNotThePortableOne) {
    sim::DeviceDescription device = camera();
    device.rawProperties["ClassGuid"] = {STATUS_OBJECT_NAME_NOT_FOUND, {}, 0};
    EXPECT_EQ(outcomeOf(device), Outcome::blocked);
    expectFilter("camera", 1, 4);
}

TEST_F(ReadOnlyDevice, OtherCodesOfTheStillImageClassAreBlocked) {
    sim::DeviceDescription device = camera();
    device.compatibleIds = {u"USB\\Class_06&SubClass_01&Prot_02", u"USB\\Class_06&SubClass_01", u"USB\\Class_06"};
    EXPECT_EQ(outcomeOf(device), Outcome::blocked);
    device.compatibleIds = {u"USB\\class_06&SubClass_01&Prot_01", u"USB\\Class_06"};
    EXPECT_EQ(outcomeOf(device), Outcome::blocked);
}

TEST_F(ReadOnlyDevice, AMediaDeviceThatIsMassStorageTooIsDeniedWriting) {
    sim::DeviceDescription device = phone();
    device.compatibleIds = {u"USB\\Class_08", u"USB\\MS_COMP_PTP"};
    EXPECT_EQ(outcomeOf(device), Outcome::writeDenied);
}

TEST_F(ReadOnlyDevice, EverythingElseIsBlockedAndKeepsTheRuleType) {
    EXPECT_EQ(outcomeOf(vendorBoard()), Outcome::blocked);
    expectFilter("board", 1, 4);
    EXPECT_EQ(outcomeOf(sim::usbSmartCardReader("reader", {0x08E6, 0x3437})), Outcome::blocked);
    EXPECT_EQ(outcomeOf(sim::usbNetworkAdapter("adapter", {0x18D1, 0x4EE4})), Outcome::blocked);
}

TEST_F(ReadOnlyDevice, OneRuleForEverythingMakesItReadOnlyUnlisted) {
    struct Case {
        RuleList readOnly;
        std::uint32_t ruleType;
    } const cases[] = {
        {asStrings({u"*"}), 5},          {asText(u"*"), 5},
        {asText(u" * * "), 5}, // the same rule twice is one
        {asStrings({u"*VID_0781*"}), 5}, {asStrings({u"*", u"VID_0000&PID_0000"}), 4},
        {asStrings({u"VID_0781*"}), 4},  {asStrings({u"?ID_0781*"}), 4},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(lines::list(one.readOnly.rules()));
        Policy policy;
        policy.readOnly = one.readOnly;
        apply(policy);
        sim::DeviceNode &node = plug(flashDrive());
        expectFilter("stick", 3, one.ruleType);
        EXPECT_THAT(addOf("stick").log, testing::Contains("INFO Check request ReadOnlyUnlisted, result = " +
                                                          std::string(one.ruleType == 5 ? "1" : "0")));
        machine().unplug(node);
    }
}

TEST_F(ReadOnlyDevice, ADeviceThatIsNotFilterableIsAllowed) {
    EXPECT_EQ(outcomeOf(mouse()), Outcome::untouched);
    expectFilter("mouse", 2, 1);
}

} // namespace
} // namespace behaviour
