// Reading the driver's log lines.

#include "cli/play/log_watch.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace cli;

namespace {

std::vector<std::string> textsOf(const std::vector<LogLine> &lines) {
    std::vector<std::string> texts;
    for (const LogLine &line : lines) {
        texts.push_back(line.withoutTime());
    }
    return texts;
}

using Lines = std::vector<std::string>;

const std::string first = "com.tarvenholt.myrtelhaven-driver-1.log";
const std::string second = "com.tarvenholt.myrtelhaven-driver-2.log";
const std::string header = "2024-03-07 9:05:01.042 INFO ";

class LogWatchTest : public testing::Test {
  protected:
    LogWatchTest() : folder(std::filesystem::temp_directory_path() / "log-watch-test"), files(folder, false) {}

    std::filesystem::path folder;
    sim::FileSystem files;
    LogWatch watch{files};
};

} // namespace

TEST(LogLine, isSplitIntoTimeLevelAndText) {
    EXPECT_EQ(parseLogLine("2024-03-07 9:05:01.042 ERROR a b"), (LogLine{"2024-03-07 9:05:01.042", "ERROR", "a b"}));
    EXPECT_EQ(parseLogLine("2024-03-07 9:05:01.042 INFO "), (LogLine{"2024-03-07 9:05:01.042", "INFO", ""}));
    EXPECT_EQ(parseLogLine("no header here"), (LogLine{"", "", "no header here"}));
    EXPECT_EQ(parseLogLine("2024-03-07 9:05:01.042 LOUD a"), (LogLine{"", "", "2024-03-07 9:05:01.042 LOUD a"}));
    EXPECT_EQ(parseLogLine(std::string("2024-03-07 9:05:01.042 INFO a\0b", 31)).text, "a\u2400b");
}

TEST_F(LogWatchTest, tellsOnlyWhatIsNew) {
    files.putTempFile(first, header + "one\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO one"}));
    EXPECT_EQ(textsOf(watch.take()), Lines());
    files.putTempFile(first, header + "one\r\n" + header + "two\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO two"}));
}

TEST_F(LogWatchTest, readsFilesInTheOrderOfTheirNames) {
    files.putTempFile(second, header + "later\r\n");
    files.putTempFile(first, header + "earlier\r\n");
    files.putTempFile("another.log", "no log of the driver\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO earlier", "INFO later"}));
}

TEST_F(LogWatchTest, skipsWhatIsThereAlready) {
    files.putTempFile(first, header + "old\r\n");
    watch.skipPresent();
    EXPECT_EQ(textsOf(watch.take()), Lines());
}

TEST_F(LogWatchTest, noticesAFileThatWasOverwritten) {
    files.putTempFile(first, header + "one\r\n" + header + "two\r\n");
    watch.take();
    files.putTempFile(first, header + "new\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO new"}));
    files.putTempFile(first, "2025-03-07 9:05:01.042 INFO other\r\n" + header + "and more than before\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO other", "INFO and more than before"}));
}

TEST_F(LogWatchTest, noticesAFileThatANewRunWritesAlike) {
    files.putTempFile(first, header + "same\r\n");
    watch.take();
    watch.newRun();
    EXPECT_EQ(textsOf(watch.take()), Lines());
    files.putTempFile(first, header + "same\r\n");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO same"}));
}

TEST_F(LogWatchTest, aRestWithoutLineEndIsALine) {
    files.putTempFile(first, header + "cut o");
    EXPECT_EQ(textsOf(watch.take()), (Lines{"INFO cut o"}));
}
