#include "log/kstring.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/kernel_test.h"

#include <type_traits>
#include <utility>

namespace unit {
namespace {

using namespace std::string_literals;

class KStrings : public KernelTest {
  protected:
    sim::Pool::Block blockOf(const KString &text) { return kernel.pool.blockAt(text.buffer()).value(); }

    static void expectEmptyWithoutBuffer(const KString &text) {
        EXPECT_EQ(text.length(), 0);
        EXPECT_EQ(text.maximumLength(), 0);
        EXPECT_TRUE(text.buffer() == nullptr);
    }
};

static_assert(!std::is_copy_constructible_v<KString> && !std::is_copy_assignable_v<KString>);

TEST_F(KStrings, BeginsWithItsCountedStringThenBufferThenPoolFlags) {
    KString text;
    EXPECT_EQ(static_cast<void *>(text.counted()), static_cast<void *>(&text));
    ASSERT_EQ(text.resize(10), STATUS_SUCCESS);
    struct Layout {
        UNICODE_STRING counted;
        PWSTR owned;
        ULONG64 poolFlags;
    };
    static_assert(sizeof(Layout) == sizeof(KString));
    const auto *layout = reinterpret_cast<const Layout *>(&text);
    EXPECT_TRUE(layout->owned == text.buffer());
    EXPECT_EQ(layout->poolFlags, 256u);
}

TEST_F(KStrings, StartsEmpty) {
    const KString text;
    expectEmptyWithoutBuffer(text);
    EXPECT_TRUE(text.empty());
}

TEST_F(KStrings, ResizeAllocatesExactlyThatMuchPagedPool) {
    KString text;
    ASSERT_EQ(text.resize(11), STATUS_SUCCESS);
    EXPECT_EQ(text.length(), 0);
    EXPECT_EQ(text.maximumLength(), 11);
    EXPECT_EQ(blockOf(text).size, 11u);
    EXPECT_EQ(blockOf(text).tag, stringPoolTag);
    EXPECT_TRUE(blockOf(text).paged);
}

TEST_F(KStrings, ResizeUsesThePoolFlagsOfTheString) {
    KString text(POOL_FLAG_NON_PAGED);
    ASSERT_EQ(text.resize(8), STATUS_SUCCESS);
    EXPECT_FALSE(blockOf(text).paged);
}

TEST_F(KStrings, GrowingKeepsTheText) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    ASSERT_EQ(text.resize(100), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "abc");
    EXPECT_EQ(text.maximumLength(), 100);
    EXPECT_EQ(kernel.pool.blocksInUse(), 1u) << "the old buffer is freed";
}

TEST_F(KStrings, ShrinkingCutsTheText) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abcdef")), STATUS_SUCCESS);
    ASSERT_EQ(text.resize(4), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "ab");
    EXPECT_EQ(text.maximumLength(), 4);
}

TEST_F(KStrings, ResizeToNothingLeavesNoBuffer) {
    for (const LONG size : {0, -1, -65536}) {
        KString text;
        ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
        EXPECT_EQ(text.resize(size), STATUS_SUCCESS);
        expectEmptyWithoutBuffer(text);
        EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
    }
}

TEST_F(KStrings, ResizeOfBorrowedTextDoesNotKeepIt) {
    KString text;
    *text.counted() = literal(L"borrowed");
    ASSERT_EQ(text.resize(40), STATUS_SUCCESS);
    EXPECT_EQ(text.length(), 0);
    EXPECT_EQ(text.maximumLength(), 40);
}

TEST_F(KStrings, ResizeWithoutMemoryChangesNothing) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    const PWSTR before = text.buffer();
    EXPECT_EQ(whileFailing("ExAllocatePool2", 1, [&] { return text.resize(100); }), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_TRUE(text.buffer() == before);
    EXPECT_EQ(utf8(text), "abc");
    EXPECT_EQ(text.maximumLength(), 6);
}

TEST_F(KStrings, ReleaseFreesTheBufferAndGoesBackToPagedPool) {
    KString text(POOL_FLAG_NON_PAGED);
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    text.release();
    expectEmptyWithoutBuffer(text);
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
    ASSERT_EQ(text.resize(8), STATUS_SUCCESS);
    EXPECT_TRUE(blockOf(text).paged);
}

TEST_F(KStrings, ReleaseOfBorrowedTextFreesNothing) {
    KString text;
    *text.counted() = literal(L"borrowed");
    text.release();
    expectEmptyWithoutBuffer(text);
}

TEST_F(KStrings, ForgettingLeavesTheBufferToItsNewOwner) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    const PWSTR buffer = text.buffer();
    text.forget();
    expectEmptyWithoutBuffer(text);
    EXPECT_EQ(kernel.pool.blocksInUse(), 1u);
    ExFreePoolWithTag(buffer, stringPoolTag);
}

TEST_F(KStrings, MovingHandsTheTextOver) {
    KString first;
    ASSERT_EQ(first.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    const PWSTR buffer = first.buffer();
    KString second(std::move(first));
    EXPECT_TRUE(second.buffer() == buffer);
    KString third;
    ASSERT_EQ(third.copyFrom(literal(L"old")), STATUS_SUCCESS);
    third = std::move(second);
    EXPECT_EQ(utf8(third), "abc");
    EXPECT_EQ(kernel.pool.blocksInUse(), 1u);
}

TEST_F(KStrings, MovingToItselfKeepsTheText) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    KString &same = text;
    text = std::move(same);
    EXPECT_EQ(utf8(text), "abc");
}

TEST_F(KStrings, CopyHasExactlyTheLengthOfTheText) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "abc");
    EXPECT_EQ(text.maximumLength(), 6);
    EXPECT_EQ(blockOf(text).size, 6u);
}

TEST_F(KStrings, CopyKeepsNulsInsideTheText) {
    KString text;
    ASSERT_EQ(text.copyFrom(Text(multiSz({u"a", u"b"}))), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "a\0b"s);
}

TEST_F(KStrings, CopyOfNothingHasNoBuffer) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    ASSERT_EQ(text.copyFrom(UNICODE_STRING{}), STATUS_SUCCESS);
    expectEmptyWithoutBuffer(text);
}

TEST_F(KStrings, CopyWithoutMemoryKeepsTheOldText) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"old")), STATUS_SUCCESS);
    EXPECT_EQ(whileFailing("ExAllocatePool2", 1, [&] { return text.copyFrom(literal(L"new")); }),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(utf8(text), "old");
}

TEST_F(KStrings, AppendWithinTheRoomAllocatesNothing) {
    KString text;
    ASSERT_EQ(text.resize(8), STATUS_SUCCESS);
    const PWSTR buffer = text.buffer();
    ASSERT_EQ(text.append(literal(L"ab")), STATUS_SUCCESS);
    ASSERT_EQ(text.append(literal(L"cd")), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "abcd");
    EXPECT_TRUE(text.buffer() == buffer);
}

TEST_F(KStrings, AppendGrowsToExactlyTheNewLength) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    ASSERT_EQ(text.append(literal(L"\\*")), STATUS_SUCCESS);
    EXPECT_EQ(utf8(text), "abc\\*");
    EXPECT_EQ(text.maximumLength(), 10);
    EXPECT_EQ(blockOf(text).size, 10u);
}

TEST_F(KStrings, AppendOfNothingChangesNothing) {
    KString text;
    ASSERT_EQ(text.append(UNICODE_STRING{}), STATUS_SUCCESS);
    expectEmptyWithoutBuffer(text);
}

TEST_F(KStrings, AppendWithoutMemoryChangesNothing) {
    KString text;
    ASSERT_EQ(text.copyFrom(literal(L"abc")), STATUS_SUCCESS);
    EXPECT_EQ(whileFailing("ExAllocatePool2", 1, [&] { return text.append(literal(L"d")); }),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(utf8(text), "abc");
    EXPECT_EQ(text.maximumLength(), 6);
}

TEST_F(KStrings, DroppingTrailingNulsKeepsInnerOnes) {
    KString text;
    ASSERT_EQ(text.copyFrom(Text(std::u16string_view(u"a\0b\0\0", 5))), STATUS_SUCCESS);
    text.dropTrailingNuls();
    EXPECT_EQ(utf8(text), "a\0b"s);
    EXPECT_EQ(text.maximumLength(), 10);
}

class KStringLimit : public KStrings {
  protected:
    /// Appends "\*" to a text of that many characters.
    static NTSTATUS appendTwoTo(std::size_t characters, KString &text) {
        EXPECT_EQ(text.copyFrom(Text(std::u16string(characters, u'x'))), STATUS_SUCCESS);
        return text.append(literal(L"\\*"));
    }
};

TEST_F(KStringLimit, TextOf65534BytesIsTheLongestThatCharactersMake) {
    KString text;
    EXPECT_EQ(appendTwoTo(32'765, text), STATUS_SUCCESS);
    EXPECT_EQ(text.length(), 65'534);
    EXPECT_EQ(text.maximumLength(), 65'534);
}

TEST_F(KStringLimit, AppendBeyond65535BytesIsRefused) {
    for (const std::size_t characters : {32'766u, 32'767u}) {
        KString text;
        EXPECT_EQ(appendTwoTo(characters, text), STATUS_BUFFER_TOO_SMALL) << characters;
        EXPECT_EQ(text.length(), characters * 2) << "the text is unchanged";
    }
}

TEST_F(KStringLimit, AppendOfOneByteReaches65535Bytes) {
    KString text;
    ASSERT_EQ(text.copyFrom(Text(std::u16string(32'767, u'x'))), STATUS_SUCCESS);
    UNICODE_STRING oneByte = literal(L"y");
    oneByte.Length = 1;
    EXPECT_EQ(text.append(oneByte), STATUS_SUCCESS);
    EXPECT_EQ(text.length(), 65'535);
    EXPECT_EQ(text.append(oneByte), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(text.length(), 65'535);
}

TEST_F(KStringLimit, ResizeTo65535BytesGivesThatRoom) {
    KString text;
    ASSERT_EQ(text.resize(65'535), STATUS_SUCCESS);
    EXPECT_EQ(text.maximumLength(), 65'535);
}

TEST_F(KStringLimit, RoomBeyondWhatACountedStringCanSayIsCountedIn16Bits) {
    KString text;
    ASSERT_EQ(text.resize(65'536 + 10), STATUS_SUCCESS);
    EXPECT_EQ(blockOf(text).size, 65'546u);
    EXPECT_EQ(text.maximumLength(), 10);
}

} // namespace
} // namespace unit
