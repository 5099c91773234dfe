#include "log/log_stream.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/log_test.h"

namespace unit {
namespace {

class LogSubmit : public LogTest {
  protected:
    static void submitText(const WCHAR *text) {
        LogStream line(POOL_FLAG_NON_PAGED);
        line.append(text).submit();
    }
    static void expectEmptyAndInert(LogStream &line) {
        line.append(L"more").appendUnsigned32(1);
        EXPECT_TRUE(line.failed());
        EXPECT_TRUE(line.text() == nullptr);
        EXPECT_EQ(line.length(), 0u);
        EXPECT_EQ(line.capacity(), 0u);
    }
};

TEST_F(LogSubmit, EndsTheLineWithCarriageReturnAndLineFeed) {
    submitText(L"text");
    settle();
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(LogSubmit, MovesTheTextToACopyOfTheRecordInNonPagedPool) {
    kernel.workers.pause();
    LogStream line(LogLevel::info);
    const WCHAR *text = line.append(L"text").text();
    line.submit();
    EXPECT_TRUE(kernel.pool.blockAt(text).has_value()) << "the text itself is not copied";
    EXPECT_EQ(kernel.pool.blocksInUse(), 2u);
    EXPECT_EQ(kernel.pool.bytesInUse(), 4096u + sizeof(LogStream));
    static_assert(sizeof(LogStream) == 48);
}

TEST_F(LogSubmit, LeavesTheStreamEmptyAndInert) {
    LogStream line(LogLevel::info);
    line.submit();
    expectEmptyAndInert(line);
}

TEST_F(LogSubmit, WithoutMemoryForTheCopyTheLineIsLost) {
    LogStream line(LogLevel::info);
    whileFailing("ExAllocatePool2", 1, [&] {
        line.submit();
        return true;
    });
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u) << "the text is given back at once";
    expectEmptyAndInert(line);
    settle();
    EXPECT_THAT(kernel.files.tempFiles(), testing::IsEmpty());
}

TEST_F(LogSubmit, WithoutAWorkItemTheLineIsLost) {
    LogStream line(LogLevel::info);
    whileFailing("IoAllocateWorkItem", 1, [&] {
        line.submit();
        return true;
    });
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
    expectEmptyAndInert(line);
    settle();
    EXPECT_THAT(kernel.files.tempFiles(), testing::IsEmpty());
}

TEST_F(LogSubmit, LineThatRanOutOfMemoryIsWrittenUpToThereAndTheNextContinuesIt) {
    LogStream line(POOL_FLAG_NON_PAGED);
    line.append(L"kept ");
    const Text tooLong(std::u16string(2000, u'x'));
    whileFailing("ExAllocatePool2", 1, [&] { return line.append(tooLong).append(L"dropped").failed(); });
    line.submit();
    submitText(L"next");
    settle();
    EXPECT_EQ(fileOf(startSecond), "kept next\r\n");
}

TEST_F(LogSubmit, LineWithoutMemoryForItsEndIsWrittenWithoutIt) {
    LogStream line(POOL_FLAG_NON_PAGED);
    line.append(Text(std::u16string(1022, u'x')));
    ASSERT_EQ(line.capacity(), 2048u);
    whileFailing("ExAllocatePool2", 1, [&] {
        line.submit();
        return true;
    });
    submitText(L"next");
    settle();
    EXPECT_EQ(fileOf(startSecond), std::string(1022, 'x') + "next\r\n");
}

TEST_F(LogSubmit, LineWithoutAnyTextIsNotWritten) {
    whileFailing("ExAllocatePool2", 1, [&] {
        LogStream line(LogLevel::info);
        line.append(L"text").submit();
        return true;
    });
    settle();
    EXPECT_THAT(kernel.files.tempFiles(), testing::IsEmpty());
}

TEST_F(LogSubmit, LinesAreWrittenInOrder) {
    submitText(L"one");
    submitText(L"two");
    submitText(L"three");
    settle();
    EXPECT_EQ(fileOf(startSecond), "one\r\ntwo\r\nthree\r\n");
}

TEST_F(LogSubmit, LeavesNothingBehindWhateverFails) {
    const Text long_(std::u16string(3000, u'x'));
    failEachCall(
        [&] {
            LogStream line(LogLevel::info);
            line.append(long_).submit();
            settle();
            return true;
        },
        [&](bool, bool) {
            EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
            submitText(L" next");
            settle();
            EXPECT_THAT(fileOf(startSecond), testing::EndsWith(" next\r\n"));
        });
}

} // namespace
} // namespace unit
