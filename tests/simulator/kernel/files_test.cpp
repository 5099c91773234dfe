#include "kernel_fixture.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace sim::test {

namespace {

constexpr ULONG synchronous = FILE_SYNCHRONOUS_IO_NONALERT;
constexpr ULONG shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class FilesTest : public KernelTest {
  protected:
    struct Opened {
        NTSTATUS status;
        HANDLE handle = nullptr;
        ULONG_PTR information = 0;
    };

    static OBJECT_ATTRIBUTES attributesOf(Text &name) {
        OBJECT_ATTRIBUTES attributes;
        InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
        return attributes;
    }

    Opened open(std::u16string_view path, ULONG disposition, ACCESS_MASK access = GENERIC_WRITE, ULONG share = 0,
                ULONG options = synchronous | FILE_NON_DIRECTORY_FILE, ULONG fileAttributes = FILE_ATTRIBUTE_NORMAL) {
        Text name(path);
        OBJECT_ATTRIBUTES attributes = attributesOf(name);
        IO_STATUS_BLOCK status{};
        Opened opened{};
        opened.status = ZwCreateFile(&opened.handle, access, &attributes, &status, nullptr, fileAttributes, share,
                                     disposition, options, nullptr, 0);
        opened.information = status.Information;
        return opened;
    }

    NTSTATUS write(HANDLE file, std::string text, std::optional<std::int64_t> offset = std::nullopt) {
        IO_STATUS_BLOCK status{};
        LARGE_INTEGER at;
        at.QuadPart = offset.value_or(0);
        const NTSTATUS result = ZwWriteFile(file, nullptr, nullptr, nullptr, &status, text.data(),
                                            static_cast<ULONG>(text.size()), offset ? &at : nullptr, nullptr);
        if (NT_SUCCESS(result)) {
            EXPECT_EQ(status.Information, text.size());
        }
        return result;
    }

    NTSTATUS remove(std::u16string_view path) {
        Text name(path);
        OBJECT_ATTRIBUTES attributes = attributesOf(name);
        return ZwDeleteFile(&attributes);
    }

    static constexpr std::u16string_view log = u"\\SystemRoot\\Temp\\a.log";
};

TEST_F(FilesTest, createWriteAndRead) {
    const Opened file = open(log, FILE_OVERWRITE_IF);
    ASSERT_EQ(file.status, STATUS_SUCCESS); // no SYNCHRONIZE asked for: fine from the kernel
    EXPECT_EQ(file.information, static_cast<ULONG_PTR>(FILE_CREATED));
    EXPECT_EQ(write(file.handle, "hello "), STATUS_SUCCESS);
    EXPECT_EQ(write(file.handle, "world"), STATUS_SUCCESS);
    EXPECT_EQ(kernel.leaks().size(), 1u);
    ZwClose(file.handle);
    EXPECT_EQ(kernel.files.tempFile("a.log"), "hello world");
    EXPECT_EQ(kernel.files.tempFiles(), std::vector<std::string>{"a.log"});
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(FilesTest, dispositionsAndTheirInformation) {
    EXPECT_EQ(open(log, FILE_OPEN).status, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(open(log, FILE_OVERWRITE).status, STATUS_OBJECT_NAME_NOT_FOUND);
    kernel.files.putTempFile("A.LOG", "old text");
    EXPECT_EQ(open(log, FILE_CREATE).status, STATUS_OBJECT_NAME_COLLISION);
    const Opened again = open(log, FILE_OPEN_IF);
    EXPECT_EQ(again.information, static_cast<ULONG_PTR>(FILE_OPENED));
    ZwClose(again.handle);
    const Opened over = open(log, FILE_OVERWRITE_IF);
    EXPECT_EQ(over.information, static_cast<ULONG_PTR>(FILE_OVERWRITTEN));
    ZwClose(over.handle);
    EXPECT_EQ(kernel.files.tempFile("a.log"), "");
    EXPECT_EQ(kernel.files.tempFiles(), std::vector<std::string>{"A.LOG"}); // the spelling stays
}

TEST_F(FilesTest, folders) {
    const ULONG folder = FILE_DIRECTORY_FILE | synchronous;
    const Opened existing = open(u"\\SystemRoot\\TEMP", FILE_OPEN_IF, GENERIC_READ, shareAll, folder);
    EXPECT_EQ(existing.status, STATUS_SUCCESS);
    EXPECT_EQ(existing.information, static_cast<ULONG_PTR>(FILE_OPENED));
    ZwClose(existing.handle);
    const Opened made = open(u"\\SystemRoot\\Logs", FILE_OPEN_IF, GENERIC_READ, shareAll, folder);
    EXPECT_EQ(made.information, static_cast<ULONG_PTR>(FILE_CREATED));
    ZwClose(made.handle);
    EXPECT_EQ(open(u"\\SystemRoot\\X\\Y", FILE_OPEN_IF, GENERIC_READ, shareAll, folder).status,
              STATUS_OBJECT_PATH_NOT_FOUND);
    kernel.files.putTempFile("plain", "");
    EXPECT_EQ(open(u"\\SystemRoot\\Temp\\plain", FILE_OPEN_IF, GENERIC_READ, shareAll, folder).status,
              STATUS_NOT_A_DIRECTORY);
    EXPECT_EQ(open(u"\\SystemRoot\\Logs", FILE_OVERWRITE_IF, GENERIC_READ, shareAll, folder).status,
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(open(u"\\SystemRoot\\Logs", FILE_OVERWRITE_IF).status, STATUS_FILE_IS_A_DIRECTORY);
    EXPECT_EQ(open(u"\\SystemRoot\\Logs", FILE_OVERWRITE_IF, GENERIC_WRITE, 0, synchronous).status,
              STATUS_OBJECT_NAME_COLLISION);
}

TEST_F(FilesTest, namesThatCannotBe) {
    EXPECT_EQ(open(u"\\SystemRoot\\Temp\\a*b", FILE_OPEN_IF).status, STATUS_OBJECT_NAME_INVALID);
    EXPECT_EQ(open(u"a.log", FILE_OPEN_IF).status, STATUS_OBJECT_PATH_SYNTAX_BAD);
    EXPECT_EQ(open(u"\\Nowhere\\a.log", FILE_OPEN_IF).status, STATUS_OBJECT_PATH_NOT_FOUND);
    EXPECT_EQ(stoppedBy([this] { open(u"\\??\\C:\\a.log", FILE_OPEN_IF); }).empty(), false);
}

TEST_F(FilesTest, sharingIsCheckedEvenForTheKernel) {
    const Opened writer = open(log, FILE_OVERWRITE_IF, GENERIC_WRITE, FILE_SHARE_READ);
    EXPECT_EQ(open(log, FILE_OPEN, GENERIC_READ, FILE_SHARE_READ).status, STATUS_SHARING_VIOLATION);
    const Opened reader = open(log, FILE_OPEN, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(reader.status, STATUS_SUCCESS);
    EXPECT_EQ(open(log, FILE_OVERWRITE_IF, GENERIC_WRITE, shareAll).status, STATUS_SHARING_VIOLATION);
    const Opened attributesOnly = open(log, FILE_OPEN, FILE_READ_ATTRIBUTES, 0);
    EXPECT_EQ(attributesOnly.status, STATUS_SUCCESS);
    EXPECT_EQ(remove(log), STATUS_SHARING_VIOLATION);
    for (HANDLE handle : {writer.handle, reader.handle, attributesOnly.handle}) {
        ZwClose(handle);
    }
    EXPECT_EQ(remove(log), STATUS_SUCCESS);
    EXPECT_TRUE(kernel.files.tempFiles().empty());
}

TEST_F(FilesTest, deletedFileStaysUntilItsLastClose) {
    const Opened holder = open(log, FILE_OVERWRITE_IF, GENERIC_WRITE, shareAll);
    EXPECT_EQ(remove(log), STATUS_SUCCESS);
    EXPECT_EQ(open(log, FILE_OPEN_IF, GENERIC_READ, shareAll).status, STATUS_DELETE_PENDING);
    EXPECT_EQ(kernel.files.tempFiles().size(), 1u);
    ZwClose(holder.handle);
    EXPECT_TRUE(kernel.files.tempFiles().empty());
    EXPECT_EQ(remove(log), STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(FilesTest, attributesProtect) {
    kernel.files.putTempFile("a.log", "x");
    const auto path = *kernel.files.hostPath(log);
    kernel.files.setAttributes(path, FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(open(log, FILE_OVERWRITE_IF).status, STATUS_ACCESS_DENIED);
    EXPECT_EQ(open(log, FILE_OPEN).status, STATUS_ACCESS_DENIED);
    EXPECT_EQ(remove(log), STATUS_CANNOT_DELETE);
    kernel.files.setAttributes(path, FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(open(log, FILE_OVERWRITE_IF).status, STATUS_ACCESS_DENIED);
    const Opened repeated = open(log, FILE_OVERWRITE_IF, GENERIC_WRITE, 0, synchronous, FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(repeated.status, STATUS_SUCCESS);
    ZwClose(repeated.handle);
    EXPECT_EQ(kernel.files.attributes(path), static_cast<ULONG>(FILE_ATTRIBUTE_HIDDEN));
}

TEST_F(FilesTest, offsetsOfWrites) {
    const Opened file = open(log, FILE_OVERWRITE_IF);
    EXPECT_EQ(write(file.handle, "abc", 4), STATUS_SUCCESS);
    EXPECT_EQ(write(file.handle, "d"), STATUS_SUCCESS); // the position followed
    LARGE_INTEGER special;
    special.HighPart = -1;
    special.LowPart = FILE_WRITE_TO_END_OF_FILE;
    EXPECT_EQ(write(file.handle, "X", 0), STATUS_SUCCESS);
    EXPECT_EQ(write(file.handle, "end", special.QuadPart), STATUS_SUCCESS);
    special.LowPart = FILE_USE_FILE_POINTER_POSITION;
    EXPECT_EQ(write(file.handle, "!", special.QuadPart), STATUS_SUCCESS);
    EXPECT_EQ(write(file.handle, "!", -7), STATUS_INVALID_PARAMETER);
    ZwClose(file.handle);
    EXPECT_EQ(kernel.files.tempFile("a.log"), std::string("X\0\0\0abcdend!", 12));
}

TEST_F(FilesTest, appendOnlyIgnoresOffsets) {
    kernel.files.putTempFile("a.log", "old");
    const Opened file = open(log, FILE_OPEN, FILE_APPEND_DATA | SYNCHRONIZE);
    EXPECT_EQ(write(file.handle, "new", 0), STATUS_SUCCESS);
    ZwClose(file.handle);
    EXPECT_EQ(kernel.files.tempFile("a.log"), "oldnew");
}

TEST_F(FilesTest, writesThatFail) {
    const Opened file = open(log, FILE_OVERWRITE_IF, GENERIC_WRITE, shareAll);
    kernel.files.setFull(true);
    EXPECT_EQ(write(file.handle, "x"), STATUS_DISK_FULL);
    kernel.files.setFull(false);
    kernel.faults.failNamed("ZwWriteFile", 1, STATUS_IO_TIMEOUT, false);
    kernel.faults.arm(true);
    EXPECT_EQ(write(file.handle, "x"), STATUS_IO_TIMEOUT);
    kernel.faults.clear();
    const Opened reader = open(log, FILE_OPEN, GENERIC_READ, shareAll);
    EXPECT_EQ(write(reader.handle, "x"), STATUS_ACCESS_DENIED);
    EXPECT_EQ(write(nullptr, "x"), STATUS_INVALID_HANDLE);
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { write(file.handle, "x"); }), "irql");
    ZwClose(reader.handle);
    ZwClose(file.handle);
}

TEST_F(FilesTest, volumeThatIsNotThereYet) {
    kernel.files.setMounted(false);
    EXPECT_EQ(open(log, FILE_OVERWRITE_IF).status, STATUS_OBJECT_PATH_NOT_FOUND);
    kernel.files.setMounted(true);
    const Opened file = open(log, FILE_OVERWRITE_IF);
    EXPECT_EQ(file.status, STATUS_SUCCESS);
    ZwClose(file.handle);
}

TEST_F(FilesTest, informationOfAFile) {
    const Opened file = open(log, FILE_OVERWRITE_IF, GENERIC_WRITE | DELETE);
    write(file.handle, "12345");
    IO_STATUS_BLOCK status{};
    FILE_STANDARD_INFORMATION standard{};
    EXPECT_EQ(ZwQueryInformationFile(file.handle, &status, &standard, sizeof standard, FileStandardInformation),
              STATUS_SUCCESS);
    EXPECT_EQ(standard.EndOfFile.QuadPart, 5);
    EXPECT_EQ(standard.AllocationSize.QuadPart, 4096);
    FILE_END_OF_FILE_INFORMATION end{};
    end.EndOfFile.QuadPart = 2;
    EXPECT_EQ(ZwSetInformationFile(file.handle, &status, &end, sizeof end, FileEndOfFileInformation), STATUS_SUCCESS);
    FILE_DISPOSITION_INFORMATION disposition{TRUE};
    EXPECT_EQ(ZwSetInformationFile(file.handle, &status, &disposition, sizeof disposition, FileDispositionInformation),
              STATUS_SUCCESS);
    EXPECT_EQ(kernel.files.tempFile("a.log"), "12");
    ZwClose(file.handle);
    EXPECT_TRUE(kernel.files.tempFiles().empty());
}

TEST_F(FilesTest, temporaryFolderGoesWithTheMachine) {
    EXPECT_TRUE(std::filesystem::exists(kernel.files.systemRoot() / "Temp"));
    std::filesystem::path made;
    {
        const FileSystem temporary({}, false);
        made = temporary.systemRoot();
        EXPECT_TRUE(std::filesystem::exists(made));
    }
    EXPECT_FALSE(std::filesystem::exists(made));
}

class FolderTest : public FilesTest {
  protected:
    FolderTest() {
        folder =
            open(u"\\SystemRoot\\Temp", FILE_OPEN, GENERIC_READ, shareAll, FILE_DIRECTORY_FILE | synchronous).handle;
    }
    ~FolderTest() override { ZwClose(folder); }

    NTSTATUS next(const char16_t *pattern, ULONG room = 272, bool restart = false) {
        std::memset(buffer, 0, sizeof buffer);
        UNICODE_STRING text{};
        RtlInitUnicodeString(&text, wide(pattern));
        status = {{-1}, 99};
        return ZwQueryDirectoryFile(folder, nullptr, nullptr, nullptr, &status, buffer, room, FileNamesInformation,
                                    TRUE, pattern == nullptr ? nullptr : &text, restart);
    }
    std::string name() {
        const auto *entry = reinterpret_cast<const FILE_NAMES_INFORMATION *>(buffer);
        return toUtf8({reinterpret_cast<const char16_t *>(entry->FileName), entry->FileNameLength / 2});
    }
    std::vector<std::string> list(const char16_t *pattern) {
        std::vector<std::string> names;
        while (next(pattern) == STATUS_SUCCESS) {
            names.push_back(name());
        }
        return names;
    }

    HANDLE folder;
    alignas(4) char buffer[272];
    IO_STATUS_BLOCK status{};
};

TEST_F(FolderTest, namesComeInUpcasedOrder) {
    for (const char *file : {"log_b", "LOG_C", "log_a", "other"}) {
        kernel.files.putTempFile(file, "");
    }
    EXPECT_EQ(list(u"log_*"), (std::vector<std::string>{"log_a", "log_b", "LOG_C"}));
    EXPECT_EQ(next(u"log_*"), STATUS_NO_MORE_FILES);
    EXPECT_EQ(next(nullptr, 272, true), STATUS_SUCCESS); // the first pattern holds, the scan starts anew
    EXPECT_EQ(name(), "log_a");
    EXPECT_EQ(status.Information, 12u + 10u);
}

TEST_F(FolderTest, emptyFirstAnswerDiffersFromTheLaterOnes) {
    EXPECT_EQ(next(u"log_*"), STATUS_NO_SUCH_FILE);
    EXPECT_EQ(status.Information, 99u); // not written
    EXPECT_EQ(next(u"log_*"), STATUS_NO_MORE_FILES);
    EXPECT_EQ(next(u"log_*", 272, true), STATUS_NO_MORE_FILES);
    EXPECT_FALSE(NT_SUCCESS(STATUS_NO_MORE_FILES));
}

TEST_F(FolderTest, dotsComeFirstOnlyForEverything) {
    kernel.files.putTempFile("!first", "");
    EXPECT_EQ(list(u"*"), (std::vector<std::string>{".", "..", "!first"}));
}

TEST_F(FolderTest, shortNamesMatchToo) {
    kernel.files.putTempFile("x.log2", "");
    kernel.files.putTempFile("a long name.txt", "");
    EXPECT_EQ(list(u"*.log"), std::vector<std::string>{"x.log2"});
}

TEST_F(FolderTest, shortNameOfALongName) {
    kernel.files.putTempFile("a long name.txt", "");
    EXPECT_EQ(list(u"alongn~1.txt"), std::vector<std::string>{"a long name.txt"});
}

TEST_F(FolderTest, nameThatDoesNotFitIsCutAndNotPassed) {
    kernel.files.putTempFile("abcdefgh", "");
    EXPECT_EQ(next(u"a*", 18), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(reinterpret_cast<FILE_NAMES_INFORMATION *>(buffer)->FileNameLength, 16u);
    EXPECT_EQ(next(u"a*", 18), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(next(u"a*", 28), STATUS_SUCCESS);
    EXPECT_EQ(name(), "abcdefgh");
}

TEST_F(FolderTest, deletionDuringAScan) {
    for (const char *file : {"a1", "a2", "a3"}) {
        kernel.files.putTempFile(file, "");
    }
    next(u"a*");
    EXPECT_EQ(remove(u"\\SystemRoot\\Temp\\a1"), STATUS_SUCCESS);
    EXPECT_EQ(remove(u"\\SystemRoot\\Temp\\a2"), STATUS_SUCCESS);
    EXPECT_EQ(next(u"a*"), STATUS_SUCCESS);
    EXPECT_EQ(name(), "a3");
}

TEST_F(FolderTest, badArguments) {
    EXPECT_EQ(next(u"*", 15), STATUS_INFO_LENGTH_MISMATCH);
    EXPECT_EQ(ZwQueryDirectoryFile(folder, nullptr, nullptr, nullptr, &status, buffer, 272,
                                   static_cast<FILE_INFORMATION_CLASS>(30), TRUE, nullptr, FALSE),
              STATUS_INVALID_INFO_CLASS);
    EXPECT_EQ(stoppedBy([this] {
                  ZwQueryDirectoryFile(folder, nullptr, nullptr, nullptr, &status, buffer, 272, FileNamesInformation,
                                       FALSE, nullptr, FALSE);
              }),
              "not simulated");
    kernel.faults.failNamed("ZwQueryDirectoryFile", 1, STATUS_UNSUCCESSFUL, false);
    kernel.faults.arm(true);
    EXPECT_EQ(next(u"*"), STATUS_UNSUCCESSFUL);
}

TEST_F(FolderTest, nonEmptyFolderSurvivesItsDeletion) {
    ZwClose(open(u"\\SystemRoot\\Temp\\full", FILE_CREATE, GENERIC_READ, shareAll, FILE_DIRECTORY_FILE | synchronous)
                .handle);
    kernel.files.putTempFile("full/inside", "x");
    EXPECT_EQ(remove(u"\\SystemRoot\\Temp\\full"), STATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(kernel.files.systemRoot() / "Temp" / "full" / "inside"));
}

} // namespace

} // namespace sim::test
