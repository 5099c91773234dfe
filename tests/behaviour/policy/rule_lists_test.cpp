#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

/// How the rule lists are read, told by the lines of a device add.
class RuleLists : public DriverTest {
  protected:
    RuleLists() {
        apply({});
        start();
    }
    /// Lines of the first reading of the lists in an add.
    Lines reading(const sim::DeviceDescription &device = mouse()) {
        unplug(device.name);
        plug(device);
        const Lines &log = addOf(device.name).log;
        const auto begin = std::find(log.begin(), log.end(), "INFO Release the rule storage resources");
        const auto end = std::find_if(begin, log.end(), [](const std::string &line) {
            return line.find("et usb mode") != std::string::npos || line.find("retreiveUsbMode") != std::string::npos;
        });
        return {begin, end};
    }
    /// The rules that were put into the sets, in order.
    std::vector<std::string> rulesOf(const Lines &log) {
        const std::string begin = "INFO putIdToContainerWithSerial rule = ";
        std::vector<std::string> rules;
        for (const std::string &line : log) {
            if (line.starts_with(begin)) {
                rules.push_back(line.substr(begin.size()));
            }
        }
        return rules;
    }
};

TEST_F(RuleLists, AreReadBlockedAllowedReadOnly) {
    apply({asText(u"Class_08 Class_06"), asStrings({u"VID_1", u"VID_2\\S"}), asText(u"VID_3")});
    EXPECT_EQ(reading(), (Lines{
                             "INFO Release the rule storage resources",
                             "INFO Query multistring key, parameter = BlockedCompatibleIds",
                             "INFO Value type in registry is not multistring",
                             "INFO Query string key, parameter = BlockedCompatibleIds",
                             "INFO putIdToContainerWithSerial rule = Class_08",
                             "INFO putIdToContainerWithSerial rule = Class_06",
                             "INFO Query multistring key, parameter = AllowedHardwareIds",
                             "INFO putIdToContainerWithSerial rule = VID_1",
                             "INFO putIdToContainerWithSerial rule = VID_2\\S",
                             "INFO Query multistring key, parameter = ReadOnlyHardwareIds",
                             "INFO Value type in registry is not multistring",
                             "INFO Query string key, parameter = ReadOnlyHardwareIds",
                             "INFO putIdToContainerWithSerial rule = VID_3",
                         }));
}

TEST_F(RuleLists, TextIsSplitAtBlanksAlone) {
    const std::pair<std::u16string, std::vector<std::string>> texts[] = {
        {u"Class_08  MS_COMP_MTP ", {"Class_08", "MS_COMP_MTP"}},
        {u" a", {"a"}},
        {u"a\tb,c;d e", {"a\tb,c;d", "e"}},
        {u"a\u00a0b", {lines::utf8(u"a\u00a0b")}}, // a no-break space is no separator
        {std::u16string(u"a\0b c", 5), {"a", "c"}},
        {std::u16string(u"\0a b", 4), {"b"}},
    };
    for (const auto &[text, rules] : texts) {
        SCOPED_TRACE(lines::utf8(text));
        apply({asText(text), {}, {}});
        EXPECT_EQ(rulesOf(reading()), rules);
    }
}

TEST_F(RuleLists, TextWithoutItsNulIsReadToTheEnd) {
    setParameter(u"BlockedCompatibleIds", REG_SZ, bytesOf(u"Class_03 Class_0"));
    EXPECT_EQ(rulesOf(reading()), (std::vector<std::string>{"Class_03", "Class_0"}));
    std::vector<std::uint8_t> odd = bytesOf(u"Class_03");
    odd.push_back(u'x');
    setParameter(u"BlockedCompatibleIds", REG_SZ, odd);
    EXPECT_EQ(rulesOf(reading()), std::vector<std::string>{"Class_03"});
}

TEST_F(RuleLists, OtherTypesAreRefusedByBothReaders) {
    for (const std::uint32_t type : {REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_NONE}) {
        SCOPED_TRACE(type);
        setParameter(u"BlockedCompatibleIds", type, bytesOf(u"ab"));
        EXPECT_EQ(reading(), (Lines{"INFO Release the rule storage resources",
                                    "INFO Query multistring key, parameter = BlockedCompatibleIds",
                                    "INFO Value type in registry is not multistring",
                                    "INFO Query string key, parameter = BlockedCompatibleIds",
                                    "ERROR Invalid parameter when wdf query memory",
                                    "ERROR Failed to read blocked rules key, status = 0xc000000d"}));
    }
}

TEST_F(RuleLists, WithoutABlockedListTheOthersAreNotRead) {
    apply({{}, asStrings({u"VID_1"}), asStrings({u"VID_2"})});
    EXPECT_EQ(reading(), (Lines{"INFO Release the rule storage resources",
                                "INFO Query multistring key, parameter = BlockedCompatibleIds",
                                "ERROR Failed to query multistring, status = 0xc0000034",
                                "INFO Query string key, parameter = BlockedCompatibleIds",
                                "ERROR Failed to wdf query memory, status = 0xc0000034",
                                "ERROR Failed to read blocked rules key, status = 0xc0000034"}));
    EXPECT_TRUE(plug(flashDrive()).started()) << "nothing is filterable then";
    EXPECT_EQ(filterOf("stick").ruleType, 1U);
}

TEST_F(RuleLists, AFailedAllowedListIsToldTwiceAndTheReadOnlyListIsRead) {
    apply({asText(u"Class_08"), {}, asStrings({u"VID_0781*"})});
    EXPECT_EQ(reading(flashDrive()), (Lines{"INFO Release the rule storage resources",
                                            "INFO Query multistring key, parameter = BlockedCompatibleIds",
                                            "INFO Value type in registry is not multistring",
                                            "INFO Query string key, parameter = BlockedCompatibleIds",
                                            "INFO putIdToContainerWithSerial rule = Class_08",
                                            "INFO Query multistring key, parameter = AllowedHardwareIds",
                                            "ERROR Failed to query multistring, status = 0xc0000034",
                                            "INFO Query string key, parameter = AllowedHardwareIds",
                                            "ERROR Failed to wdf query memory, status = 0xc0000034",
                                            "ERROR Failed to read allowed rules key, status = 0xc0000034",
                                            "INFO Query multistring key, parameter = ReadOnlyHardwareIds",
                                            "INFO putIdToContainerWithSerial rule = VID_0781*",
                                            "ERROR Failed to read readonly rules key, status = 0xc0000034"}));
    EXPECT_EQ(filterOf("stick").mode, 3U);
}

TEST_F(RuleLists, AReadOnlyListReadAsTextClearsTheStatusOfTheAllowedList) {
    apply({asText(u"Class_08"), {}, asText(u"VID_0781*")});
    EXPECT_THAT(reading(flashDrive()), Not(Contains(StartsWith("ERROR Failed to read readonly rules key"))));
}

TEST_F(RuleLists, AFailedReadOnlyListIsTold) {
    apply({asText(u"Class_08"), asStrings({}), {}});
    const Lines log = reading(flashDrive());
    EXPECT_EQ(log.back(), "ERROR Failed to read readonly rules key, status = 0xc0000034");
    EXPECT_THAT(log, Not(Contains(StartsWith("ERROR Failed to read allowed rules key"))));
}

TEST_F(RuleLists, WithoutTheParametersKeyNothingIsFilterable) {
    registry().deleteKey(sim::Machine::parametersKey());
    EXPECT_EQ(reading(),
              (Lines{"INFO Release the rule storage resources", "ERROR Failed to open key, status = 0xc0000034"}));
    EXPECT_TRUE(plug(flashDrive()).started());
    EXPECT_EQ(filterOf("stick").ruleType, 1U);
}

TEST_F(RuleLists, TheKeyThatCannotBeOpenedLeavesTheSetsEmpty) {
    apply(allowing({u"*"}));
    failInAdd("WdfDriverOpenParametersRegistryKey", 2, STATUS_ACCESS_DENIED); // the reading for the decision
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
    EXPECT_THAT(addOf("stick").log, Contains("ERROR Failed to open key, status = 0xc0000022"));
}

TEST_F(RuleLists, ACollectionThatCannotBeMadeFallsBackToText) {
    apply({asText(u"Class_08"), asStrings({}), asStrings({})});
    failInAdd("WdfCollectionCreate", 1);
    const Lines log = reading(flashDrive());
    EXPECT_EQ(log[2], "ERROR Failed to create a collection, status = 0xc000009a");
    EXPECT_EQ(log[3], "INFO Query string key, parameter = BlockedCompatibleIds");
    EXPECT_EQ(log[4], "INFO putIdToContainerWithSerial rule = Class_08");
    EXPECT_EQ(filterOf("stick").filterable, 1U);
}

TEST_F(RuleLists, AreReadAnewForEachDecision) {
    apply(allowing({u"VID_0781*"}));
    EXPECT_TRUE(plug(flashDrive()).started());
    apply({});
    EXPECT_EQ(plug(otherFlashDrive()).problemCode(), 29U);
    apply({asText(u"Class_06"), {}, {}});
    EXPECT_TRUE(machine().replug(deviceNode("other stick")).started());
}

TEST_F(RuleLists, ValueNamesAreFoundInAnyLetterCase) {
    registry().deleteValue(sim::Machine::parametersKey(), u"AllowedHardwareIds");
    registry().setMultiString(sim::Machine::parametersKey(), u"ALLOWEDhardwareids", {u"VID_0781*"});
    EXPECT_TRUE(plug(flashDrive()).started());
}

} // namespace
} // namespace behaviour
