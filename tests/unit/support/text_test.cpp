#include "support/text.h"

#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

using namespace std::string_literals;

class TextHelpers : public KernelTest {};

TEST_F(TextHelpers, LiteralCountsItsTextWithoutTheNulAndItsRoomWithIt) {
    constexpr UNICODE_STRING text = literal(L"abc");
    EXPECT_EQ(text.Length, 6);
    EXPECT_EQ(text.MaximumLength, 8);
    EXPECT_EQ(utf8(text), "abc");
}

TEST_F(TextHelpers, EmptyLiteralHasNoLength) {
    EXPECT_EQ(literal(L"").Length, 0);
}

TEST_F(TextHelpers, CharacterCountIgnoresAnOddLastByte) {
    UNICODE_STRING text = literal(L"abc");
    text.Length = 5;
    EXPECT_EQ(characterCount(text), 2);
}

TEST_F(TextHelpers, PartIsAViewOfTheSameText) {
    const UNICODE_STRING text = literal(L"abcdef");
    const UNICODE_STRING middle = part(text, 2, 3);
    EXPECT_EQ(utf8(middle), "cde");
    EXPECT_TRUE(middle.Buffer == text.Buffer + 2);
    EXPECT_EQ(middle.MaximumLength, 6);
}

TEST_F(TextHelpers, EmptyPartHasNoBuffer) {
    const UNICODE_STRING nothing = part(literal(L"abc"), 3, 0);
    EXPECT_EQ(nothing.Length, 0);
    EXPECT_TRUE(nothing.Buffer == nullptr);
}

TEST_F(TextHelpers, TrailingNulsAreCutAndInnerOnesStay) {
    const Text text(std::u16string_view(u"a\0b\0\0", 5));
    EXPECT_EQ(utf8(withoutTrailingNuls(text)), "a\0b"s);
}

TEST_F(TextHelpers, TextOfNulsOnlyBecomesEmpty) {
    const Text text(std::u16string_view(u"\0\0", 2));
    EXPECT_EQ(withoutTrailingNuls(text).Length, 0);
    EXPECT_EQ(withoutTrailingNuls(UNICODE_STRING{}).Length, 0);
}

TEST_F(TextHelpers, CuttingTrailingNulsDropsAnOddLastByteAndKeepsTheRoom) {
    UNICODE_STRING text = literal(L"abc");
    text.Length = 5;
    const UNICODE_STRING cut = withoutTrailingNuls(text);
    EXPECT_EQ(cut.Length, 4);
    EXPECT_EQ(cut.MaximumLength, 8);
}

TEST_F(TextHelpers, ComparisonWithAndWithoutCase) {
    EXPECT_TRUE(equalIgnoringCase(literal(L"UsbCCGP"), literal(L"usbccgp")));
    EXPECT_FALSE(equalIgnoringCase(literal(L"usbccgp"), literal(L"usbccgp2")));
    EXPECT_TRUE(equalCaseSensitive(literal(L"USB"), literal(L"USB")));
    EXPECT_FALSE(equalCaseSensitive(literal(L"USB"), literal(L"Usb")));
    EXPECT_TRUE(equalCaseSensitive(UNICODE_STRING{}, literal(L"")));
}

TEST_F(TextHelpers, FieldTextEndsAtTheFirstNul) {
    const WCHAR field[6] = {L'a', L'b', L'\0', L'c', L'\0', L'\0'};
    EXPECT_EQ(utf8(fieldText(field, 6)), "ab");
}

TEST_F(TextHelpers, FieldTextWithoutNulFillsTheField) {
    const WCHAR field[3] = {L'a', L'b', L'c'};
    const UNICODE_STRING text = fieldText(field, 3);
    EXPECT_EQ(utf8(text), "abc");
    EXPECT_EQ(text.MaximumLength, 6);
}

TEST_F(TextHelpers, CopyToFieldEndsTheTextWithANul) {
    WCHAR field[4] = {L'x', L'x', L'x', L'x'};
    copyToField(field, literal(L"ab"));
    EXPECT_EQ(utf8(fieldText(field, 4)), "ab");
    EXPECT_EQ(field[3], L'x');
}

TEST_F(TextHelpers, CopyToFieldCutsWhatDoesNotFitBeforeTheNul) {
    WCHAR field[4];
    copyToField(field, literal(L"abcdef"));
    EXPECT_EQ(utf8(fieldText(field, 4)), "abc");
    EXPECT_EQ(field[3], L'\0');
}

TEST_F(TextHelpers, CopyToFieldOfNothingLeavesAnEmptyField) {
    WCHAR field[2] = {L'x', L'x'};
    copyToField(field, UNICODE_STRING{});
    EXPECT_EQ(field[0], L'\0');
}

} // namespace
} // namespace unit
