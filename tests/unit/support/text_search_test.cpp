#include "support/text_search.h"

#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

class TextSearch : public KernelTest {
  protected:
    static ULONG find(std::u16string_view haystack, std::u16string_view needle) {
        return findNoCase(Text(haystack), Text(needle));
    }
};

TEST_F(TextSearch, FindsTheFirstPlaceWhateverTheCase) {
    EXPECT_EQ(find(u"Standard NVM Express Controller", u"nvm"), 9u);
    EXPECT_EQ(find(u"pci\\cc_010802", u"PCI\\CC_010802"), 0u);
    EXPECT_EQ(find(u"abABab", u"AB"), 0u);
    EXPECT_EQ(find(u"xxABab", u"ab"), 2u);
}

TEST_F(TextSearch, FindsTheLastPlace) {
    EXPECT_EQ(find(u"PCI Express Downstream", u"STREAM"), 16u);
    EXPECT_EQ(find(u"abc", u"C"), 2u);
}

TEST_F(TextSearch, TellsWhenThereIsNone) {
    EXPECT_EQ(find(u"Standard SATA Controller", u"NVM"), notFound);
    EXPECT_EQ(find(u"NV", u"NVM"), notFound);
    EXPECT_EQ(find(u"", u"NVM"), notFound);
    EXPECT_EQ(find(u"xNV", u"NVM"), notFound); // one that begins too late
    EXPECT_EQ(notFound, 0xFFFFFFFFu);
}

TEST_F(TextSearch, AnEmptyNeedleIsFoundAtTheBeginning) {
    EXPECT_EQ(find(u"text", u""), 0u);
    EXPECT_EQ(find(u"", u""), 0u);
}

TEST_F(TextSearch, AnOddLastByteIsNoCharacter) {
    const Text text(u"abc");
    UNICODE_STRING haystack = text;
    haystack.Length = 5;
    EXPECT_EQ(findNoCase(haystack, Text(u"b")), 1u);
    EXPECT_EQ(findNoCase(haystack, Text(u"c")), notFound);
    UNICODE_STRING halfCharacter = text;
    halfCharacter.Length = 1;
    EXPECT_EQ(findNoCase(Text(u"xyz"), halfCharacter), 0u);
}

TEST_F(TextSearch, UsesTheSystemsTableOfCases) {
    EXPECT_EQ(find(u"L\u00C4NGE", u"\u00E4"), 1u);
    EXPECT_TRUE(equalsNoCase(L'\u00FF', L'\u0178'));
    EXPECT_TRUE(equalsNoCase(L'z', L'Z'));
    EXPECT_FALSE(equalsNoCase(L'\u00DF', L'S'));
    EXPECT_FALSE(equalsNoCase(L'@', L'`')); // one bit apart, as letters of two cases are
}

TEST_F(TextSearch, CopesWithTheLongestText) {
    const std::u16string text = std::u16string(0x7FFE, u'a') + u'b';
    EXPECT_EQ(find(text, u"AB"), 0x7FFDu);
    EXPECT_EQ(find(text, text), 0u);
    EXPECT_EQ(find(text, u"c"), notFound);
}

} // namespace
} // namespace unit
