#include "kernel_fixture.h"

#include <cstring>
#include <vector>

namespace sim::test {

namespace {

using StringConversionTest = KernelTest;

constexpr ULONG untouched = 0xDEADBEEF;

struct Parsed {
    NTSTATUS status;
    ULONG value;
    bool operator==(const Parsed &) const = default;
};

Parsed parse(std::u16string_view text, ULONG base) {
    Text string(text);
    Parsed parsed{0, untouched};
    parsed.status = RtlUnicodeStringToInteger(&string, base, &parsed.value);
    return parsed;
}

TEST_F(StringConversionTest, integersWithKnownBase) {
    EXPECT_EQ(parse(u"1234", 10), (Parsed{STATUS_SUCCESS, 1234}));
    EXPECT_EQ(parse(u"  \t+12x", 10), (Parsed{STATUS_SUCCESS, 12}));
    EXPECT_EQ(parse(u"-1", 10), (Parsed{STATUS_SUCCESS, 0xFFFFFFFF}));
    EXPECT_EQ(parse(u"fF", 16), (Parsed{STATUS_SUCCESS, 255}));
    EXPECT_EQ(parse(u"129", 8), (Parsed{STATUS_SUCCESS, 10}));
    EXPECT_EQ(parse(u"4294967297", 10), (Parsed{STATUS_SUCCESS, 1}));
}

TEST_F(StringConversionTest, aGivenBaseSkipsNoPrefix) {
    EXPECT_EQ(parse(u"0x1F", 16), (Parsed{STATUS_SUCCESS, 0}));
    EXPECT_EQ(parse(u"0b1011", 16), (Parsed{STATUS_SUCCESS, 0xB1011}));
    EXPECT_EQ(parse(u"0d10", 16), (Parsed{STATUS_SUCCESS, 0xD10}));
}

TEST_F(StringConversionTest, baseZeroReadsThePrefix) {
    EXPECT_EQ(parse(u"0x1f", 0), (Parsed{STATUS_SUCCESS, 31}));
    EXPECT_EQ(parse(u"0o17", 0), (Parsed{STATUS_SUCCESS, 15}));
    EXPECT_EQ(parse(u"0b101", 0), (Parsed{STATUS_SUCCESS, 5}));
    EXPECT_EQ(parse(u"010", 0), (Parsed{STATUS_SUCCESS, 10}));
    EXPECT_EQ(parse(u"0X1f", 0), (Parsed{STATUS_SUCCESS, 0}));
    EXPECT_EQ(parse(u"0x", 0), (Parsed{STATUS_SUCCESS, 0}));
    EXPECT_EQ(parse(u"-0x10", 0), (Parsed{STATUS_SUCCESS, 0xFFFFFFF0}));
}

TEST_F(StringConversionTest, nothingValidIsZeroWithSuccess) {
    EXPECT_EQ(parse(u"ZZ", 16), (Parsed{STATUS_SUCCESS, 0}));
    EXPECT_EQ(parse(u"   ", 10), (Parsed{STATUS_SUCCESS, 0}));
    EXPECT_EQ(parse(u"--5", 10), (Parsed{STATUS_SUCCESS, 0}));
}

TEST_F(StringConversionTest, badArgumentsLeaveTheOutputAlone) {
    EXPECT_EQ(parse(u"12", 7), (Parsed{STATUS_INVALID_PARAMETER, untouched}));
    EXPECT_EQ(parse(u"", 10), (Parsed{STATUS_INVALID_PARAMETER, untouched}));
}

TEST_F(StringConversionTest, oddLengthIsRoundedDown) {
    Text text(u"12");
    text.get().Length = 3;
    ULONG value = 0;
    EXPECT_EQ(RtlUnicodeStringToInteger(&text, 10, &value), STATUS_SUCCESS);
    EXPECT_EQ(value, 1u);
}

TEST_F(StringConversionTest, integersToText) {
    WCHAR buffer[12];
    UNICODE_STRING text{0, sizeof buffer, buffer};
    EXPECT_EQ(RtlIntegerToUnicodeString(255, 16, &text), STATUS_SUCCESS);
    EXPECT_EQ(view(text), u"FF");
    EXPECT_EQ(RtlIntegerToUnicodeString(0, 0, &text), STATUS_SUCCESS);
    EXPECT_EQ(view(text), u"0");
    text.MaximumLength = 4;
    EXPECT_EQ(RtlIntegerToUnicodeString(100, 10, &text), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(RtlIntegerToUnicodeString(100, 3, &text), STATUS_INVALID_PARAMETER);
}

TEST_F(StringConversionTest, ansiTextNeedsRoomForTheNul) {
    ANSI_STRING source;
    RtlInitAnsiString(&source, "ab\x80");
    EXPECT_EQ(RtlxAnsiStringToUnicodeSize(&source), 8u);
    WCHAR buffer[4] = {9, 9, 9, 9};
    UNICODE_STRING destination{0, 6, buffer};
    EXPECT_EQ(RtlAnsiStringToUnicodeString(&destination, &source, FALSE), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(destination.Length, 6); // the wanted length, though nothing was copied
    EXPECT_EQ(buffer[0], 9);
    destination.MaximumLength = 8;
    EXPECT_EQ(RtlAnsiStringToUnicodeString(&destination, &source, FALSE), STATUS_SUCCESS);
    EXPECT_EQ(view(destination), u"ab\u20AC");
    EXPECT_EQ(buffer[3], 0);
}

TEST_F(StringConversionTest, ansiTextIsAllocated) {
    ANSI_STRING source;
    RtlInitAnsiString(&source, "hello");
    UNICODE_STRING text;
    ASSERT_EQ(RtlAnsiStringToUnicodeString(&text, &source, TRUE), STATUS_SUCCESS);
    EXPECT_EQ(view(text), u"hello");
    EXPECT_EQ(text.MaximumLength, 12);
    RtlFreeUnicodeString(&text);
}

TEST_F(StringConversionTest, ansiTextThatIsTooLong) {
    const std::string longText(0x7FFF, 'x');
    ANSI_STRING source;
    RtlInitAnsiString(&source, longText.c_str());
    UNICODE_STRING text{};
    EXPECT_EQ(RtlAnsiStringToUnicodeString(&text, &source, TRUE), STATUS_INVALID_PARAMETER_2);
}

struct Utf8 {
    NTSTATUS status;
    std::string bytes;
    ULONG needed;
};

Utf8 utf8(const std::u16string &text, ULONG room = 100) {
    std::string buffer(room, '#');
    ULONG written = untouched;
    ULONG needed = untouched;
    const auto *source = reinterpret_cast<PCWCH>(text.data());
    const auto bytes = static_cast<ULONG>(text.size() * 2);
    RtlUnicodeToUTF8N(nullptr, 0, &needed, source, bytes);
    const NTSTATUS status = RtlUnicodeToUTF8N(buffer.data(), room, &written, source, bytes);
    EXPECT_EQ(buffer.find_first_not_of('#', written), std::string::npos) << "bytes behind the text were touched";
    return {status, buffer.substr(0, written), needed};
}

TEST_F(StringConversionTest, utf8OfWholeCharacters) {
    const Utf8 result = utf8(u"a\u00E9\u20AC\U0001F600\uFEFF\uFFFF");
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.bytes, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBB\xBF\xEF\xBF\xBF");
    EXPECT_EQ(result.needed, result.bytes.size());
}

TEST_F(StringConversionTest, loneSurrogatesAreReplacedWithSuccess) {
    const Utf8 result = utf8({u'a', 0xD800, u'b', 0xDC00, 0xD800});
    EXPECT_EQ(result.status, STATUS_SOME_NOT_MAPPED);
    EXPECT_TRUE(NT_SUCCESS(result.status));
    EXPECT_EQ(result.bytes, "a\xEF\xBF\xBD"
                            "b\xEF\xBF\xBD\xEF\xBF\xBD");
    ULONG needed = 0;
    const WCHAR lone[] = {static_cast<WCHAR>(0xDC00)};
    EXPECT_EQ(RtlUnicodeToUTF8N(nullptr, 0, &needed, lone, 2), STATUS_SOME_NOT_MAPPED);
    EXPECT_EQ(needed, 3u);
}

TEST_F(StringConversionTest, nulsDoNotEndTheText) {
    EXPECT_EQ(utf8(std::u16string(u"a\0b\0", 4)).bytes, std::string("a\0b\0", 4));
}

TEST_F(StringConversionTest, shortBufferKeepsWholeCharacters) {
    const Utf8 result = utf8(u"a\u20ACb", 3);
    EXPECT_EQ(result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.bytes, "a");
}

TEST_F(StringConversionTest, plainAndOtherCharactersMayAlternate) {
    const Utf8 result = utf8(u"ab\u00E9cd\u20AC\u20ACe");
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.bytes, "ab\xC3\xA9"
                            "cd\xE2\x82\xAC\xE2\x82\xAC"
                            "e");
    EXPECT_EQ(result.needed, result.bytes.size());
    EXPECT_EQ(utf8(u"abcdef", 6).status, STATUS_SUCCESS);
    EXPECT_EQ(utf8(u"abcdef", 5).status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(utf8(u"abcdef", 5).bytes, "abcde");
    EXPECT_EQ(utf8(u"abc\u00E9", 4).bytes, "abc");
}

TEST_F(StringConversionTest, utf8Arguments) {
    char buffer[8];
    ULONG count = 0;
    EXPECT_EQ(RtlUnicodeToUTF8N(buffer, 8, &count, nullptr, 2), STATUS_INVALID_PARAMETER_4);
    EXPECT_EQ(RtlUnicodeToUTF8N(nullptr, 0, nullptr, wide(u"a"), 2), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(RtlUnicodeToUTF8N(buffer, 8, &count, wide(u"ab"), 3), STATUS_INVALID_PARAMETER_5);
    EXPECT_EQ(RtlUnicodeToUTF8N(nullptr, 0, &count, wide(u"ab"), 3), STATUS_SUCCESS);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(RtlUnicodeToUTF8N(buffer, 8, &count, wide(u""), 0), STATUS_SUCCESS);
    EXPECT_EQ(count, 0u);
}

} // namespace

} // namespace sim::test
