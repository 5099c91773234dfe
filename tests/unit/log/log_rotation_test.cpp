#include "log/log_writer.h"

#include "support/text.h"
#include "tests/unit/fixture/log_test.h"

#include <algorithm>

namespace unit {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Names = std::vector<std::string>;

class LogRotation : public LogTest {
  protected:
    void putFiles(const Names &names) {
        for (const std::string &name : names) {
            kernel.files.putTempFile(name, "bytes of " + name);
        }
    }
    NTSTATUS rotate() { return rotateLogFiles(*log); }
    Names files() { return kernel.files.tempFiles(); }

    static std::string named(const std::string &rest) { return "com.tarvenholt.myrtelhaven-" + rest; }
    const Names fiveFiles = {named("driver-1700000001.log"), named("driver-1700000002.log"),
                             named("driver-1700000003.log"), named("driver-1700000004.log"),
                             named("driver-1700000005.log")};
    const Names newestThree = Names(fiveFiles.begin() + 2, fiveFiles.end());
};

TEST_F(LogRotation, OfFiveFilesDeletesTheTwoSmallestNames) {
    putFiles({fiveFiles[3], fiveFiles[0], fiveFiles[4], fiveFiles[2], fiveFiles[1]});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAreArray(newestThree));
}

TEST_F(LogRotation, OfThreeFilesDeletesNone) {
    putFiles(newestThree);
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAreArray(newestThree));
}

TEST_F(LogRotation, OtherFilesNeitherCountNorGo) {
    putFiles(newestThree);
    putFiles({"aaa.log", "com.tarvenholt.myrtelhaven", "com.tarvenholt.myrtelhaven.log", "other-" + fiveFiles[0]});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_EQ(files().size(), 7u);
}

TEST_F(LogRotation, FilesOfOtherComponentsWithThePrefixCountAndGoFirstWhenTheirNamesAreSmaller) {
    putFiles(newestThree);
    putFiles({named("agent-1800000000.log"), named("agent.txt")});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAreArray(newestThree));
}

TEST_F(LogRotation, FilesOfOtherComponentsWithLargerNamesPushOutTheDriversOwn) {
    putFiles(newestThree);
    putFiles({named("service-1.log"), named("service-2.log"), named("service-3.log")});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAre(named("service-1.log"), named("service-2.log"), named("service-3.log")));
}

TEST_F(LogRotation, ThePrefixIsFoundInAnyCaseAndNamesAreOrderedByTheirCode) {
    putFiles(newestThree);
    putFiles({"COM.TARVENHOLT.MYRTELHAVEN-ZZZ.LOG"});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAreArray(newestThree)) << "capitals come before small letters";
}

TEST_F(LogRotation, NumbersAreOrderedAsText) {
    putFiles({named("driver-10.log"), named("driver-2.log"), named("driver-3.log"), named("driver-9.log")});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAre(named("driver-2.log"), named("driver-3.log"), named("driver-9.log")));
}

TEST_F(LogRotation, DirectoryWithoutLogFilesIsReportedAndLeftAlone) {
    putFiles({"other.log"});
    EXPECT_EQ(rotate(), STATUS_NO_SUCH_FILE);
    EXPECT_THAT(files(), ElementsAre("other.log"));
}

TEST_F(LogRotation, MissingDirectoryIsReported) {
    std::filesystem::remove_all(kernel.files.systemRoot() / "Temp");
    EXPECT_EQ(rotate(), STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(LogRotation, BeforeTheBootVolumeIsThereItFails) {
    kernel.files.setMounted(false);
    EXPECT_FALSE(NT_SUCCESS(rotate()));
}

class LogRotationNames : public LogRotation {
  protected:
    /// The largest of all names, of that many characters.
    static std::string nameOf(std::size_t characters) {
        const std::string start = named("z");
        return start + std::string(characters - start.size(), 'z');
    }
};

TEST_F(LogRotationNames, NameThatFillsTheListingBufferCounts) {
    putFiles(newestThree);
    putFiles({nameOf(130)});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAre(newestThree[1], newestThree[2], nameOf(130)));
}

TEST_F(LogRotationNames, NameLongerThanTheListingBufferEndsItWithNothingDeleted) {
    putFiles(fiveFiles);
    putFiles({nameOf(131)});
    EXPECT_EQ(rotate(), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(files().size(), 6u);
}

TEST_F(LogRotationNames, FullLengthNamesCanBeDeleted) {
    const std::string oldest = named(std::string(103, 'a'));
    ASSERT_EQ(oldest.size(), 130u);
    putFiles(newestThree);
    putFiles({oldest});
    EXPECT_EQ(rotate(), STATUS_SUCCESS);
    EXPECT_THAT(files(), ElementsAreArray(newestThree));
}

class FailingLogRotation : public LogRotation {
  protected:
    FailingLogRotation() { putFiles(fiveFiles); }
};

TEST_F(FailingLogRotation, InTheMiddleOfTheListingDeletesNothing) {
    for (std::uint64_t call = 1; call <= 6; ++call) {
        EXPECT_EQ(whileFailing("ZwQueryDirectoryFile", call, [&] { return rotate(); }), STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THAT(files(), ElementsAreArray(fiveFiles));
    }
}

TEST_F(FailingLogRotation, OnAnUndeletableFileStopsThere) {
    kernel.files.setAttributes(kernel.files.systemRoot() / "Temp" / fiveFiles[1], FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(rotate(), STATUS_CANNOT_DELETE);
    EXPECT_THAT(files(), ElementsAreArray(Names(fiveFiles.begin() + 1, fiveFiles.end())));
}

TEST_F(FailingLogRotation, OnAFileInUseStopsBeforeIt) {
    const Text path(u"\\SystemRoot\\Temp\\" + sim::toUtf16(fiveFiles[0]));
    UNICODE_STRING name = path;
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    HANDLE reader = nullptr;
    IO_STATUS_BLOCK result{};
    ASSERT_EQ(ZwOpenFile(&reader, GENERIC_READ, &attributes, &result, FILE_SHARE_READ, FILE_SYNCHRONOUS_IO_NONALERT),
              STATUS_SUCCESS);
    EXPECT_EQ(rotate(), STATUS_SHARING_VIOLATION);
    EXPECT_THAT(files(), ElementsAreArray(fiveFiles));
    ZwClose(reader);
}

TEST_F(FailingLogRotation, DeletesOldestFirstOrNothingWhateverFails) {
    failEachCall([&] { return rotate(); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(NT_SUCCESS(status), !failed);
                     const Names left = files();
                     EXPECT_TRUE(left.size() >= 3 && std::equal(left.rbegin(), left.rend(), fiveFiles.rbegin()));
                     EXPECT_EQ(left.size() == 3, !failed);
                     EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
                     putFiles(fiveFiles);
                 });
}

} // namespace
} // namespace unit
