#include "kernel_fixture.h"

#include <vector>

namespace sim::test {

namespace {

using StringsTest = KernelTest;

LONG compared(std::u16string_view a, std::u16string_view b, bool ignoreCase = true) {
    Text first(a);
    Text second(b);
    return RtlCompareUnicodeString(&first, &second, ignoreCase);
}

TEST_F(StringsTest, initialisationCountsBytes) {
    UNICODE_STRING text;
    RtlInitUnicodeString(&text, wide(u"abc"));
    EXPECT_EQ(text.Length, 6);
    EXPECT_EQ(text.MaximumLength, 8);
    RtlInitUnicodeString(&text, nullptr);
    EXPECT_EQ(text.Length, 0);
    EXPECT_EQ(text.MaximumLength, 0);
    EXPECT_EQ(text.Buffer, nullptr);
}

TEST_F(StringsTest, initialisationTruncatesAtTheLongestString) {
    const std::u16string longText(40000, u'x');
    UNICODE_STRING text;
    RtlInitUnicodeString(&text, wide(longText.c_str()));
    EXPECT_EQ(text.Length, 0xFFFC);
    EXPECT_EQ(text.MaximumLength, 0xFFFE);
}

TEST_F(StringsTest, copyTruncatesInSilence) {
    WCHAR buffer[4] = {1, 1, 1, 1};
    UNICODE_STRING destination{0, 4, buffer};
    Text source(u"abcd");
    RtlCopyUnicodeString(&destination, &source);
    EXPECT_EQ(destination.Length, 4);
    EXPECT_EQ(buffer[2], 1); // no room for a NUL
    destination.MaximumLength = 8;
    Text shorter(u"ab");
    RtlCopyUnicodeString(&destination, &shorter);
    EXPECT_EQ(buffer[2], 0);
    RtlCopyUnicodeString(&destination, nullptr);
    EXPECT_EQ(destination.Length, 0);
}

TEST_F(StringsTest, comparisonGoesUnitByUnit) {
    EXPECT_LT(compared(u"a", u"b"), 0);
    EXPECT_GT(compared(u"ab", u"a"), 0);
    EXPECT_EQ(compared(u"aBc", u"AbC"), 0);
    EXPECT_NE(compared(u"aBc", u"AbC", false), 0);
    EXPECT_GT(compared(u"_", u"z"), 0); // letters are folded to capitals, which sort before "_"
    EXPECT_LT(compared(u"_", u"z", false), 0);
    EXPECT_EQ(compared(u"", u""), 0);
}

TEST_F(StringsTest, equalityAndPrefix) {
    Text usb(u"USB\\VID_0781");
    Text lower(u"usb\\vid_0781");
    Text prefix(u"usb\\");
    Text empty(u"");
    EXPECT_TRUE(RtlEqualUnicodeString(&usb, &lower, TRUE));
    EXPECT_FALSE(RtlEqualUnicodeString(&usb, &lower, FALSE));
    EXPECT_FALSE(RtlEqualUnicodeString(&usb, &prefix, TRUE));
    EXPECT_TRUE(RtlPrefixUnicodeString(&prefix, &usb, TRUE));
    EXPECT_FALSE(RtlPrefixUnicodeString(&prefix, &usb, FALSE));
    EXPECT_TRUE(RtlPrefixUnicodeString(&empty, &usb, FALSE));
    EXPECT_FALSE(RtlPrefixUnicodeString(&usb, &prefix, TRUE));
}

TEST_F(StringsTest, upcaseTableMapsOneUnitToOne) {
    EXPECT_EQ(upcase(u'a'), u'A');
    EXPECT_EQ(upcase(u'\u00E4'), u'\u00C4');
    EXPECT_EQ(upcase(u'\u00FF'), u'\u0178');
    EXPECT_EQ(upcase(u'\u03B1'), u'\u0391');
    EXPECT_EQ(upcase(u'\u0434'), u'\u0414');
    EXPECT_EQ(upcase(u'\u0561'), u'\u0531');
    EXPECT_EQ(upcase(u'\uFF41'), u'\uFF21');
    for (const char16_t unchanged : {u'\u00DF', u'\u00B5', u'\u0131', u'\u00F7', u'\u00D7', u'1', u'_'}) {
        EXPECT_EQ(upcase(unchanged), unchanged);
    }
    for (unsigned unit = 0xD800; unit < 0xE000; ++unit) {
        EXPECT_EQ(upcase(static_cast<char16_t>(unit)), unit);
    }
}

TEST_F(StringsTest, upcaseWithoutRoomConvertsNothing) {
    WCHAR buffer[2] = {7, 7};
    UNICODE_STRING destination{0, 4, buffer};
    Text source(u"abc");
    const NTSTATUS status = RtlUpcaseUnicodeString(&destination, &source, FALSE);
    EXPECT_EQ(status, STATUS_BUFFER_OVERFLOW);
    EXPECT_FALSE(NT_SUCCESS(status));
    EXPECT_FALSE(NT_ERROR(status));
    EXPECT_EQ(buffer[0], 7);
}

TEST_F(StringsTest, upcaseInPlaceAndWithoutTerminator) {
    Text text(u"abc");
    EXPECT_EQ(RtlUpcaseUnicodeString(&text, &text, FALSE), STATUS_SUCCESS);
    EXPECT_EQ(view(text.get()), u"ABC");
}

TEST_F(StringsTest, upcaseAllocatesWithoutRoomForANul) {
    Text source(u"ab");
    Text empty(u"");
    UNICODE_STRING result;
    ASSERT_EQ(RtlUpcaseUnicodeString(&result, &source, TRUE), STATUS_SUCCESS);
    EXPECT_EQ(result.Length, 4);
    EXPECT_EQ(result.MaximumLength, 4);
    EXPECT_EQ(stoppedBy([&] { ExFreePoolWithTag(result.Buffer, 'mine'); }), "pool tag");
    RtlFreeUnicodeString(&result);
    EXPECT_EQ(result.Buffer, nullptr);
    ASSERT_EQ(RtlUpcaseUnicodeString(&result, &empty, TRUE), STATUS_SUCCESS);
    EXPECT_NE(result.Buffer, nullptr);
    RtlFreeUnicodeString(&result);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(StringsTest, irqlLimits) {
    Text a(u"a");
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { RtlCompareUnicodeString(&a, &a, TRUE); }), "irql");
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { RtlUpcaseUnicodeString(&a, &a, FALSE); }), "");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { RtlUpcaseUnicodeChar(u'a'); }), "irql");
}

TEST_F(StringsTest, lengthBeyondTheBufferStops) {
    auto *buffer = static_cast<PWCH>(ExAllocatePool2(POOL_FLAG_PAGED, 4, 'tseT'));
    UNICODE_STRING text{6, 6, buffer};
    Text other(u"abc");
    EXPECT_EQ(stoppedBy([&] { RtlCompareUnicodeString(&text, &other, FALSE); }), "pool overrun");
    ExFreePoolWithTag(buffer, 'tseT');
}

TEST_F(StringsTest, hostConversionKeepsEveryUnit) {
    const std::u16string odd{u'a', 0xD800, u'b', 0xDC00, 0xD83D, 0xDE00, 0};
    EXPECT_EQ(toUtf16(toUtf8(odd)), odd);
    EXPECT_EQ(toUtf8(u"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(toUtf16("\xFF"
                      "a"),
              u"\uFFFDa");
}

} // namespace

} // namespace sim::test
