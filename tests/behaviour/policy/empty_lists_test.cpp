#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Not;
using testing::StartsWith;

/// A list without rules in each form in which the registry may hold one.
class EmptyLists : public DriverTest {
  protected:
    EmptyLists() {
        apply({});
        start();
    }
    /// The lines of the first reading of the lists in the add of a flash drive with this raw value.
    Lines readingOf(std::u16string_view value, std::uint32_t type, std::vector<std::uint8_t> data) {
        setParameter(value, type, std::move(data));
        unplug("stick");
        plug(flashDrive());
        const Lines &log = addOf("stick").log;
        const std::string first = "INFO Release the rule storage resources";
        const auto begin = std::find(log.begin(), log.end(), first);
        const auto end = std::find_if(begin, log.end(), [](const std::string &line) {
            return line == "INFO Try to get usb mode from rule storage" ||
                   line == "INFO retreiveUsbMode Device is not filterable so it will be allowed";
        });
        return {begin, end};
    }
    bool filterable() { return filterOf("stick").filterable != 0; }
    static std::vector<std::uint8_t> nuls(std::size_t bytes) { return std::vector<std::uint8_t>(bytes); }
};

TEST_F(EmptyLists, TextWithoutACharacterTakesTheDefault) {
    Policy defaults;
    Lines expected = lines::reload(defaults);
    expected.insert(expected.begin() + 4, "INFO Rules in registry is empty, use default value = Class_e0 Class_ff "
                                          "Class_0b Class_06 Class_08 MS_COMP_MTP MS_COMP_PTP");
    for (const std::size_t bytes : {0, 1}) {
        SCOPED_TRACE(bytes);
        EXPECT_EQ(readingOf(u"BlockedCompatibleIds", REG_SZ, nuls(bytes)), expected);
        EXPECT_TRUE(filterable());
    }
}

TEST_F(EmptyLists, TextOfNulsOrBlanksHasNeitherRulesNorDefault) {
    Policy nothing;
    nothing.blocked = asText(u"");
    const std::vector<std::uint8_t> forms[] = {nuls(2),
                                               nuls(3),
                                               nuls(4),
                                               bytesOf(u" "),
                                               bytesOf(u"   "),
                                               bytesOf(std::u16string_view(u"  \0", 3)),
                                               bytesOf(std::u16string_view(u"\0Class_08", 9))};
    for (const auto &data : forms) {
        SCOPED_TRACE(data.size());
        EXPECT_EQ(readingOf(u"BlockedCompatibleIds", REG_SZ, data), lines::reload(nothing));
        EXPECT_FALSE(filterable());
    }
}

TEST_F(EmptyLists, AListWithoutStringsIsSuccessWithNothingAdded) {
    Policy nothing;
    nothing.blocked = asStrings({});
    for (const std::size_t bytes : {0, 2, 4}) {
        SCOPED_TRACE(bytes);
        EXPECT_EQ(readingOf(u"BlockedCompatibleIds", REG_MULTI_SZ, nuls(bytes)), lines::reload(nothing));
        EXPECT_FALSE(filterable());
    }
    setParameter(u"BlockedCompatibleIds", REG_SZ, bytesOf(u"Class_08"));
    for (const char16_t *value : {u"AllowedHardwareIds", u"ReadOnlyHardwareIds"}) {
        for (const std::size_t bytes : {0, 2, 4}) {
            SCOPED_TRACE(bytes);
            const Lines log = readingOf(value, REG_MULTI_SZ, nuls(bytes));
            EXPECT_THAT(log, Not(Contains(StartsWith("ERROR"))));
            EXPECT_THAT(log, Not(Contains("INFO Query string key, parameter = " + lines::utf8(value))));
        }
    }
}

TEST_F(EmptyLists, OnlyTheBlockedListHasADefault) {
    for (const char16_t *value : {u"AllowedHardwareIds", u"ReadOnlyHardwareIds"}) {
        for (const std::size_t bytes : {0, 1, 2}) {
            SCOPED_TRACE(bytes);
            const Lines log = readingOf(value, REG_SZ, nuls(bytes));
            EXPECT_THAT(log, Not(Contains(StartsWith("ERROR"))));
            EXPECT_THAT(log, Not(Contains(StartsWith("INFO Rules in registry is empty"))));
            EXPECT_THAT(log, Contains("INFO Query string key, parameter = " + lines::utf8(value)));
            EXPECT_EQ(filterOf("stick").mode, 1U);
        }
    }
}

TEST_F(EmptyLists, ListsThatAreNotWellFormedAreAMismatchAndThenNoText) {
    const std::vector<std::uint8_t> forms[] = {
        nuls(1), nuls(3), nuls(5), bytesOf(u"x"), bytesOf(u"Class_08"), bytesOf(std::u16string_view(u"Class_08\0", 9))};
    for (const auto &data : forms) {
        SCOPED_TRACE(data.size());
        EXPECT_EQ(readingOf(u"BlockedCompatibleIds", REG_MULTI_SZ, data),
                  (Lines{"INFO Release the rule storage resources",
                         "INFO Query multistring key, parameter = BlockedCompatibleIds",
                         "INFO Value type in registry is not multistring",
                         "INFO Query string key, parameter = BlockedCompatibleIds",
                         "ERROR Invalid parameter when wdf query memory",
                         "ERROR Failed to read blocked rules key, status = 0xc000000d"}));
        EXPECT_FALSE(filterable());
    }
}

TEST_F(EmptyLists, EmptyDataOfAnotherTypeFails) {
    for (const std::uint32_t type : {REG_BINARY, REG_EXPAND_SZ, REG_DWORD}) {
        SCOPED_TRACE(type);
        const Lines log = readingOf(u"BlockedCompatibleIds", type, {});
        EXPECT_THAT(log, Contains(StartsWith("ERROR Failed to wdf query memory, status = 0x")));
        EXPECT_THAT(log.back(), StartsWith("ERROR Failed to read blocked rules key, status = 0x"));
    }
}

TEST_F(EmptyLists, TheSecondStringOfNothingEndsAList) {
    // A NUL more than the two that end a list, and strings behind the end.
    readingOf(u"AllowedHardwareIds", REG_MULTI_SZ, bytesOf(std::u16string_view(u"VID_0781*\0\0\0", 12)));
    EXPECT_EQ(filterOf("stick").mode, 2U);
    readingOf(u"AllowedHardwareIds", REG_MULTI_SZ, bytesOf(std::u16string_view(u"a\0\0VID_0781*\0\0", 14)));
    EXPECT_EQ(filterOf("stick").mode, 1U);
}

} // namespace
} // namespace behaviour
