#include "tests/unit/fixture/log_writer_fixture.h"

#include "support/text.h"

#include <thread>

namespace unit {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;

class LogWriter : public LogWriterTest {};

TEST_F(LogWriter, FirstLineBeginsAFileNamedAfterTheSecond) {
    writeLine(u"text");
    EXPECT_THAT(kernel.files.tempFiles(), ElementsAre("com.tarvenholt.myrtelhaven-driver-1700000000.log"));
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
    EXPECT_EQ(log->written, 6);
}

TEST_F(LogWriter, SecondsInTheNameAreUtcWhateverTheLocalTime) {
    kernel.clock.setBias(-36'000'000'000);
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(LogWriter, TimesThatSecondsSince1970CannotTellBecomeZero) {
    kernel.clock.set(systemTime(1969, 12, 31, 23, 59, 59, 999));
    writeLine(u"text");
    EXPECT_EQ(fileOf(0), "text\r\n");
}

TEST_F(LogWriter, LaterLinesAreAddedToTheFile) {
    writeLine(u"one");
    nextSecond();
    writeLine(u"two");
    EXPECT_EQ(fileOf(startSecond), "one\r\ntwo\r\n");
    EXPECT_EQ(log->written, 10);
}

TEST_F(LogWriter, FileThatIsThereAlreadyIsOverwritten) {
    kernel.files.putTempFile(logFileName(startSecond), "from an earlier run, and longer");
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(LogWriter, DirectoryIsMadeWhenItIsMissing) {
    std::filesystem::remove_all(kernel.files.systemRoot() / "Temp");
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(LogWriter, OthersMayReadTheFileWhileItIsWritten) {
    writeLine(u"text");
    EXPECT_EQ(openLog(GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE), STATUS_SUCCESS);
    EXPECT_EQ(openLog(GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE), STATUS_SHARING_VIOLATION);
    EXPECT_EQ(openLog(DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE), STATUS_SHARING_VIOLATION);
}

TEST_F(LogWriter, RecordsLongerThanACountedStringAreWrittenWhole) {
    LogStream line(POOL_FLAG_NON_PAGED);
    const Text part(std::u16string(30'000, u'x'));
    for (int times = 0; times < 4; ++times) {
        line.append(part);
    }
    line.submit();
    settle();
    EXPECT_EQ(fileOf(startSecond), std::string(120'000, 'x') + "\r\n");
}

TEST_F(LogWriter, WorkersAtOnceWriteWholeLines) {
    kernel.workers.setMode(sim::WorkQueue::Mode::free, 4);
    constexpr int threads = 4;
    constexpr int linesOfEach = 50;
    std::vector<std::thread> writers;
    for (int thread = 0; thread < threads; ++thread) {
        writers.emplace_back([] {
            for (int line = 0; line < linesOfEach; ++line) {
                submitLine(u"a line that must stay whole");
            }
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    settle();
    std::string expected;
    for (int line = 0; line < threads * linesOfEach; ++line) {
        expected += "a line that must stay whole\r\n";
    }
    EXPECT_EQ(fileOf(startSecond), expected);
}

class LogEncoding : public LogWriterTest {};

TEST_F(LogEncoding, IsUtf8WithoutByteOrderMark) {
    writeLine(u"\u00E9\u20AC\U0001F600");
    EXPECT_EQ(fileOf(startSecond), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\r\n");
    EXPECT_EQ(log->written, 11);
}

TEST_F(LogEncoding, LoneSurrogatesBecomeReplacementCharacters) {
    writeLine(u"a\xD800"
              u"b\xDC00"
              u"c\xDC00\xD800");
    EXPECT_EQ(fileOf(startSecond), "a\xEF\xBF\xBD"
                                   "b\xEF\xBF\xBD"
                                   "c\xEF\xBF\xBD\xEF\xBF\xBD\r\n");
}

TEST_F(LogEncoding, NulsAreKept) {
    writeLine(std::u16string_view(u"a\0b", 3));
    EXPECT_EQ(fileOf(startSecond), "a\0b\r\n"s);
}

} // namespace
} // namespace unit
