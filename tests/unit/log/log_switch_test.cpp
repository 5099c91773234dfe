#include "tests/unit/fixture/log_writer_fixture.h"

#include <fstream>

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Files of at most 20 bytes.
class LogSwitch : public LogWriterTest {
  protected:
    LogSwitch() { log->sizeLimit = 20; }
};

TEST_F(LogSwitch, RecordThatFillsTheRoomExactlyStaysInTheFile) {
    writeLine(tenBytes);
    nextSecond();
    writeLine(tenBytes);
    EXPECT_EQ(fileOf(startSecond), "12345678\r\n12345678\r\n");
    EXPECT_EQ(log->written, 20);
    EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
}

TEST_F(LogSwitch, RecordThatIsOneByteLongerBeginsANewFile) {
    writeLine(tenBytes);
    nextSecond();
    writeLine(u"123456789");
    EXPECT_EQ(fileOf(startSecond), "12345678\r\n");
    EXPECT_EQ(fileOf(startSecond + 1), "123456789\r\n");
    EXPECT_EQ(log->written, 11);
}

TEST_F(LogSwitch, RoomIsCountedInBytesOfUtf8) {
    writeLine(tenBytes);
    nextSecond();
    writeLine(u"1234\u00E9\u00E9"); // ten bytes
    EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
    log->written = 10;
    nextSecond();
    writeLine(u"12345\u00E9\u00E9"); // eleven bytes in nine characters
    EXPECT_EQ(fileOf(startSecond + 2), "12345\xC3\xA9\xC3\xA9\r\n");
}

TEST_F(LogSwitch, RecordOverTheLimitIsWrittenAloneAndTheNextBeginsAnotherFile) {
    writeLine(tenBytes);
    nextSecond();
    writeLine(u"1234567890123456789012345678");
    nextSecond();
    writeLine(tenBytes);
    EXPECT_EQ(fileOf(startSecond), "12345678\r\n");
    EXPECT_EQ(fileOf(startSecond + 1), "1234567890123456789012345678\r\n");
    EXPECT_EQ(fileOf(startSecond + 2), "12345678\r\n");
}

TEST_F(LogSwitch, FirstRecordOverTheLimitIsWritten) {
    writeLine(u"1234567890123456789012345678");
    EXPECT_EQ(fileOf(startSecond), "1234567890123456789012345678\r\n");
    EXPECT_EQ(log->written, 30);
}

TEST_F(LogSwitch, WithinTheSameSecondTheNewFileReplacesTheOldOne) {
    writeLine(tenBytes);
    writeLine(tenBytes);
    writeLine(u"second");
    EXPECT_EQ(fileOf(startSecond), "second\r\n");
    EXPECT_EQ(log->written, 8);
    EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
    writeLine(tenBytes);
    EXPECT_EQ(fileOf(startSecond), "second\r\n12345678\r\n") << "and is written on";
}

TEST_F(LogSwitch, KeepsThreeFiles) {
    log->sizeLimit = 10;
    for (int file = 0; file < 5; ++file) {
        writeLine(tenBytes);
        nextSecond();
    }
    EXPECT_THAT(kernel.files.tempFiles(),
                ElementsAre(logFileName(startSecond + 2), logFileName(startSecond + 3), logFileName(startSecond + 4)));
}

TEST_F(LogSwitch, FailingRotationChangesNothingForTheWriter) {
    log->sizeLimit = 10;
    for (int file = 0; file < 3; ++file) {
        writeLine(tenBytes);
        nextSecond();
    }
    writeLineWhileFailing("ZwOpenFile", 1, tenBytes);
    EXPECT_EQ(fileOf(startSecond + 3), "12345678\r\n");
    EXPECT_EQ(kernel.files.tempFiles().size(), 4u);
    nextSecond();
    writeLine(tenBytes);
    EXPECT_EQ(kernel.files.tempFiles().size(), 3u) << "the next switch makes up for it";
}

class FailingSwitch : public LogSwitch {
  protected:
    FailingSwitch() {
        writeLine(tenBytes);
        fileBefore = log->file;
        nextSecond();
    }
    void expectOldFileStays() const {
        EXPECT_EQ(log->file, fileBefore);
        EXPECT_EQ(log->written, 10);
    }
    void expectNextOneSwitches() {
        writeLine(u"too long for it");
        EXPECT_EQ(fileOf(startSecond), "12345678\r\n");
        EXPECT_EQ(fileOf(startSecond + 1), "too long for it\r\n");
    }

    HANDLE fileBefore = nullptr;
};

TEST_F(FailingSwitch, WhoseDirectoryCannotBeOpenedKeepsTheOldFileAndTriesAgain) {
    writeLineWhileFailing("ZwCreateFile", 1, u"dropped record");
    expectOldFileStays();
    EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
    expectNextOneSwitches();
}

TEST_F(FailingSwitch, WhoseFileCannotBeCreatedKeepsTheOldFileAndTriesAgain) {
    writeLineWhileFailing("ZwCreateFile", 2, u"dropped record");
    expectOldFileStays();
    expectNextOneSwitches();
}

TEST_F(FailingSwitch, WithoutMemoryForAPathKeepsTheOldFileAndTriesAgain) {
    for (const std::uint64_t allocation : {4u, 5u}) { // behind text, record and UTF-8 bytes
        writeLineWhileFailing("ExAllocatePool2", allocation, u"dropped record");
        expectOldFileStays();
        EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
    }
    expectNextOneSwitches();
}

TEST_F(FailingSwitch, LeavesTheOldFileToRecordsThatFit) {
    writeLineWhileFailing("ZwCreateFile", 1, u"dropped record");
    writeLine(tenBytes);
    EXPECT_EQ(fileOf(startSecond), "12345678\r\n12345678\r\n");
}

TEST_F(FailingSwitch, OntoAReadOnlyFileKeepsTheOldFile) {
    kernel.files.putTempFile(logFileName(startSecond + 1), "precious");
    kernel.files.setAttributes(kernel.files.systemRoot() / "Temp" / logFileName(startSecond + 1),
                               FILE_ATTRIBUTE_READONLY);
    writeLine(u"dropped record");
    expectOldFileStays();
    EXPECT_EQ(fileOf(startSecond + 1), "precious");
}

class FailingFirstFile : public LogWriterTest {};

TEST_F(FailingFirstFile, IsTriedAgainWithTheNextRecord) {
    for (const std::uint64_t create : {1u, 2u}) {
        writeLineWhileFailing("ZwCreateFile", create, u"dropped");
        EXPECT_EQ(log->file, nullptr);
        EXPECT_EQ(log->written, -1);
    }
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(FailingFirstFile, BeforeTheBootVolumeIsThereDropsRecords) {
    kernel.files.setMounted(false);
    writeLine(u"dropped");
    EXPECT_THAT(kernel.files.tempFiles(), IsEmpty());
    kernel.files.setMounted(true);
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

TEST_F(FailingFirstFile, WhereAFileStandsInPlaceOfTheDirectoryDropsRecords) {
    const auto folder = kernel.files.systemRoot() / "Temp";
    std::filesystem::remove_all(folder);
    std::ofstream(folder) << "no folder";
    writeLine(u"dropped");
    EXPECT_EQ(log->written, -1);
    std::filesystem::remove(folder);
    writeLine(u"text");
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
}

} // namespace
} // namespace unit
