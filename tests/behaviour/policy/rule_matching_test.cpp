#include "simulator/machine/setup_classes.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

class RuleMatching : public DriverTest {
  protected:
    RuleMatching() {
        setParameter(u"LogLevel", 0);
        apply({});
        start();
    }
    const FilterValues &judge(const sim::DeviceDescription &device) {
        unplug(device.name);
        plug(device);
        return filterOf(device.name);
    }
    static sim::DeviceDescription withCompatibleIds(std::vector<std::u16string> ids) {
        sim::DeviceDescription device = mouse();
        device.compatibleIds = std::move(ids);
        return device;
    }
};

TEST_F(RuleMatching, WhatIsFilterable) {
    struct Case {
        RuleList blocked;
        std::vector<std::u16string> ids;
        bool filterable;
    } const cases[] = {
        {asText(u"Class_08"), {u"USB\\Class_08"}, true},
        {asText(u"class_08"), {u"USB\\CLASS_08"}, true}, // the lookup ignores case
        {asText(u"Class_08"), {u"USB\\Class_03", u"USB\\Class_08"}, true},
        {asText(u"Class_08"), {u"USB\\Class_08&SubClass_06"}, false}, // whole
        {asText(u"USB\\Class_08"), {u"USB\\Class_08"}, false},        // ids are matched without their bus
        {asText(u"USB\\Class_08"), {u"USB\\USB\\Class_08"}, true},    // only the first backslash counts
        {asStrings({u"Class_08"}), {u"USB\\Class_08"}, false},        // became CLASS_08\*
        {asStrings({u"Class_08"}), {u"USB\\CLASS_08\\X"}, true},
        {asText(u"Class_*"), {u"USB\\Class_08"}, false}, // patterns are upper case, and compared as they are
        {asText(u"Class_*"), {u"USB\\CLASS_08"}, true},
        {asText(u"CLASS_0?"), {u"USB\\CLASS_08"}, true},
        {asText(u"CLASS_0?"), {u"USB\\CLASS_008"}, false},
        {asText(u"*"), {u"USB\\Class_03"}, true},
        {asText(u"*_*"), {u"USB\\Class_03"}, true},
        {asText(u"*"), {u"USB\\"}, false},              // an empty id, which no pattern matches
        {asText(u"\\Class_08"), {u"\\Class_08"}, true}, // a backslash in front is no bus
        {asText(u"Class_08"), {u"\\Class_08"}, false},
        {asText(u"Class_08"), {u"Class_08"}, true},
        {asText(u"MS_COMP_MTP"), {u"USB\\MS_COMP_MTP"}, true},
        {asText(u"Class_06 Class_08"), {u"USB\\Class_03&SubClass_01", u"USB\\Class_03"}, false},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(lines::list(one.blocked.rules()) + " on " + lines::list(one.ids));
        apply({one.blocked, asStrings({}), asStrings({})});
        const FilterValues &filter = judge(withCompatibleIds(one.ids));
        EXPECT_EQ(filter.filterable, one.filterable ? 1U : 0U);
        EXPECT_EQ(filter.mode, one.filterable ? 1U : 2U);
        EXPECT_EQ(filter.ruleType, one.filterable ? 3U : 1U);
    }
}

TEST_F(RuleMatching, WhatAnAllowedRuleMatches) {
    struct Case {
        RuleList allowed;
        bool matches;
    } const cases[] = {
        // VID_0781&PID_5581&REV_0100\A20054F50D478A23 and VID_0781&PID_5581\A20054F50D478A23
        {asStrings({u"vid_0781&pid_5581"}), true},
        {asStrings({u"VID_0781&PID_5581&REV_0100"}), true},
        {asStrings({u"VID_0781&PID_5581&REV_0200"}), false},
        {asStrings({u"VID_0781"}), false}, // became VID_0781\*
        {asStrings({u"VID_0781*"}), true},
        {asStrings({u"VID_0781&PID_558?"}), true},
        {asStrings({u"VID_0781&PID_5581\\A20054F50D478A23"}), true},
        {asStrings({u"VID_0781&PID_5581\\a20054f50d478a23"}), true},
        {asStrings({u"VID_0781&PID_5581\\A20054F50D478A2"}), false},
        {asStrings({u"VID_0781&PID_5581\\A20054*"}), true},
        {asStrings({u"VID_0781&PID_5581\\"}), false},
        {asStrings({u"*\\A20054F50D478A23"}), true},
        {asStrings({u"USB\\VID_0781&PID_5581*"}), false}, // ids are matched without their bus
        {asStrings({u"VID_04B4*", u"VID_0781*"}), true},
        {asStrings({u"VID_0781&PID_5581", u"vid_0781&pid_5581"}), true},
        {asText(u"vid_0781&pid_5581"), true}, // text gains the wildcard too
        {asText(u"VID_04B4* VID_0781&PID_5581\\A20054F50D478A23"), true},
        {asText(u"VID_0781&PID_5581\\B*"), false},
        {asStrings({u"*"}), true},
        {asStrings({u"Disk*"}), false},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(lines::list(one.allowed.rules()));
        apply({asText(u"Class_08"), one.allowed, asStrings({})});
        EXPECT_EQ(judge(flashDrive()).mode, one.matches ? 2U : 1U);
        apply({asText(u"Class_08"), asStrings({}), one.allowed});
        EXPECT_EQ(judge(flashDrive()).mode, one.matches ? 3U : 1U) << "the read-only list matches alike";
    }
}

TEST_F(RuleMatching, ADeviceWithoutSerialNumberStillHasTheBackslash) {
    apply(allowing({u"VID_04B4&PID_8613"}));
    EXPECT_EQ(judge(vendorBoard()).mode, 2U);
    apply(allowing({u"VID_04B4&PID_8613\\"}));
    EXPECT_EQ(judge(vendorBoard()).mode, 2U);
    apply(allowing({u"VID_04B4&PID_8613\\?*"}));
    EXPECT_EQ(judge(vendorBoard()).mode, 1U);
}

TEST_F(RuleMatching, ARuleForOneSerialNumberIsForThatStickAlone) {
    apply(allowing({u"VID_0781&PID_5581\\A20054F50D478A23"}));
    EXPECT_EQ(judge(flashDrive()).mode, 2U);
    EXPECT_EQ(judge(otherFlashDrive()).mode, 1U);
}

TEST_F(RuleMatching, EveryHardwareIdIsTried) {
    sim::DeviceDescription device = vendorBoard();
    device.hardwareIds = {u"USB\\FIRST", u"USB\\SECOND", u"USB\\THIRD"};
    apply(allowing({u"THIRD"}));
    EXPECT_EQ(judge(device).mode, 2U);
}

TEST_F(RuleMatching, OnBothListsADeviceIsAllowed) {
    Policy policy = allowing({u"VID_0781*"});
    policy.readOnly = asStrings({u"VID_0781*"});
    apply(policy);
    EXPECT_EQ(judge(flashDrive()).mode, 2U);
}

TEST_F(RuleMatching, AListedDeviceThatIsNotFilterableIsAllowed) {
    Policy policy = readOnly({u"VID_046D*"});
    apply(policy);
    EXPECT_EQ(judge(mouse()).mode, 2U);
}

TEST_F(RuleMatching, LettersBeyondAsciiIgnoreCaseToo) {
    sim::DeviceDescription device = flashDrive();
    device.usb->strings[device.usb->serialIndex] = u"sériè";
    apply(allowing({u"VID_0781&PID_5581\\SÉRIÈ"}));
    EXPECT_EQ(judge(device).mode, 2U);
    apply(allowing({u"vid_0781&pid_5581\\sériè"}));
    EXPECT_EQ(judge(device).mode, 2U);
}

TEST_F(RuleMatching, ManyRulesAreAllTried) {
    std::vector<std::u16string> rules;
    for (int number = 0; number < 500; ++number) {
        rules.push_back(u"VID_" + std::u16string(1, static_cast<char16_t>(u'A' + number % 26)) +
                        std::u16string(static_cast<std::size_t>(number / 26), u'z'));
    }
    rules.insert(rules.begin() + 250, u"VID_0781*");
    apply(allowing(rules));
    EXPECT_EQ(judge(flashDrive()).mode, 2U);
}

} // namespace
} // namespace behaviour
