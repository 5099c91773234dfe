#include "tests/unit/fixture/log_writer_fixture.h"

namespace unit {
namespace {

class FailingWrite : public LogWriterTest {};

TEST_F(FailingWrite, LeavesAGapSinceItsPlaceStaysReserved) {
    writeLine(u"one");
    kernel.files.setFull(true);
    writeLine(tenBytes);
    EXPECT_EQ(log->written, 15);
    kernel.files.setFull(false);
    writeLine(u"two");
    EXPECT_EQ(fileOf(startSecond), "one\r\n" + std::string(10, '\0') + "two\r\n");
}

TEST_F(FailingWrite, CountsAgainstTheLimit) {
    log->sizeLimit = 20;
    writeLine(tenBytes);
    writeLineWhileFailing("ZwWriteFile", 1, tenBytes);
    nextSecond();
    writeLine(tenBytes);
    EXPECT_EQ(fileOf(startSecond), "12345678\r\n");
    EXPECT_EQ(fileOf(startSecond + 1), "12345678\r\n");
}

TEST_F(FailingWrite, WithoutMemoryForItsUtf8BytesTheRecordIsDropped) {
    writeLine(u"one");
    writeLineWhileFailing("ExAllocatePool2", 3, u"dropped"); // behind text and record
    writeLine(u"two");
    EXPECT_EQ(fileOf(startSecond), "one\r\ntwo\r\n");
}

TEST_F(FailingWrite, LeavesWholeLinesAndNoMemoryWhateverFails) {
    log->sizeLimit = 10; // a new file for every record
    std::uint64_t second = startSecond;
    failEachCall(
        [&] {
            nextSecond();
            ++second;
            writeLine(tenBytes);
            return fileOf(second);
        },
        [&](const std::string &file, bool) {
            EXPECT_THAT(file, testing::AnyOf("(no file)", "", "12345678", "12345678\r\n"));
            EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
            nextSecond();
            ++second;
            writeLine(tenBytes);
            EXPECT_THAT(fileOf(second), testing::EndsWith("12345678\r\n"));
            EXPECT_LE(kernel.files.tempFiles().size(), 3u);
        });
}

} // namespace
} // namespace unit
