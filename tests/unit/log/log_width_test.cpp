#include "log/log_stream.h"

#include "support/text.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

class LogStreamWidth : public KernelTest {
  protected:
    std::string shown() const { return utf8(stream.counted()); }

    LogStream stream{POOL_FLAG_PAGED};
};

TEST_F(LogStreamWidth, ShorterTextIsPaddedWithZerosOnTheLeft) {
    stream.append(L"<").setWidth(4).append(L"7").append(L">");
    EXPECT_EQ(shown(), "<0007>");
}

TEST_F(LogStreamWidth, TextOfExactlyTheWidthIsWrittenAsItIs) {
    stream.append(L"<").setWidth(3).append(L"abc").append(L">");
    EXPECT_EQ(shown(), "<abc>");
}

TEST_F(LogStreamWidth, HoldsForTheNextAppendOnly) {
    stream.setWidth(2).append(L"1").append(L"2");
    EXPECT_EQ(shown(), "012");
}

TEST_F(LogStreamWidth, TheLastOneSetCounts) {
    stream.setWidth(5).setWidth(2).append(L"1");
    EXPECT_EQ(shown(), "01");
    stream.setWidth(5).setWidth(0).append(L"2");
    EXPECT_EQ(shown(), "012");
}

TEST_F(LogStreamWidth, AppliesToNumbersOfEveryKind) {
    stream.setWidth(3).appendUnsigned64(1);
    stream.setWidth(3).appendUnsigned32(2);
    stream.setWidth(3).appendUnsigned16(3);
    stream.setWidth(3).appendSigned16(-4);
    stream.setWidth(3).appendSigned32(-5);
    stream.setWidth(3).appendStatus(-6);
    stream.setWidth(3).appendUnsigned32(0);
    EXPECT_EQ(shown(), "0010020030-40-50-6000");
}

TEST_F(LogStreamWidth, EmptyAppendsLeaveItPending) {
    stream.setWidth(3).append(L"").append(UNICODE_STRING{}).append(nullptr, 8).append(L"x", 0).append(L"7");
    EXPECT_EQ(shown(), "007");
}

TEST_F(LogStreamWidth, LongerTextEndsWhereTheFieldEndsOverWhatPrecedesIt) {
    stream.append(L"abcdefgh").setWidth(2).append(L"12345");
    EXPECT_EQ(shown(), "abcde12345");
    EXPECT_EQ(stream.length(), 20u);
    stream.append(L"!");
    EXPECT_EQ(shown(), "abcde12345!") << "the width is used up";
}

TEST_F(LogStreamWidth, LongerTextMayOverwriteAllOfWhatPrecedesIt) {
    stream.append(L"abc").setWidth(2).append(L"12345");
    EXPECT_EQ(shown(), "12345");
}

TEST_F(LogStreamWidth, WidthCountsForGrowth) {
    stream.setWidth(1100).append(L"1");
    EXPECT_EQ(stream.length(), 2200u);
    EXPECT_EQ(stream.capacity(), (2200u + 1) * 2);
    EXPECT_EQ(shown(), std::string(1099, '0') + "1");
}

TEST_F(LogStreamWidth, LongerTextThanTheWidthCountsForGrowth) {
    const Text text(std::u16string(1500, u'x'));
    stream.append(Text(std::u16string(1000, u'a'))).setWidth(600).append(text);
    EXPECT_EQ(stream.capacity(), (2048u + 3000 + 1) * 2);
    EXPECT_EQ(shown(), std::string(100, 'a') + std::string(1500, 'x'));
}

} // namespace
} // namespace unit
