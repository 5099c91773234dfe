// Listing folders.

#include "internals.h"
#include "kernel.h"
#include "short_names.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstring>

using namespace sim;

namespace {

/// The folder's entries by upcased name, "." and ".." in front where the pattern lets them through.
std::vector<FolderEntry> listFolder(const std::filesystem::path &folder, bool withDots) {
    std::vector<FolderEntry> entries;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::u16string name = toUtf16(entry->path().filename().string());
        entries.push_back({name, upcase(name), {}});
    }
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry &a, const FolderEntry &b) { return a.upperName < b.upperName; });
    addShortNames(entries);
    if (withDots) {
        entries.insert(entries.begin(), {{u".", u".", {}}, {u"..", u"..", {}}});
    }
    return entries;
}

/// The dots come first, everything else in the order of upcased names, as NTFS keeps its index.
bool comesAfter(const FolderEntry &entry, const std::u16string &lastName) {
    const auto rank = [](const std::u16string &name) { return name == u"." ? 0 : name == u".." ? 1 : 2; };
    const int entryRank = rank(entry.upperName);
    const int lastRank = rank(lastName);
    return entryRank != lastRank ? entryRank > lastRank : entry.upperName > lastName;
}

bool fits(const FolderEntry &entry, const std::u16string &pattern) {
    return pattern.empty() || nameMatches(pattern, entry.upperName) ||
           (!entry.shortName.empty() && nameMatches(pattern, entry.shortName));
}

/// Writes one FILE_NAMES_INFORMATION as far as it fits.
NTSTATUS writeEntry(const std::u16string &name, PVOID buffer, ULONG bytes, PIO_STATUS_BLOCK ioStatus) {
    constexpr ULONG headerBytes = FIELD_OFFSET(FILE_NAMES_INFORMATION, FileName);
    const auto nameBytes = static_cast<ULONG>(name.size() * sizeof(WCHAR));
    const ULONG stored = std::min(nameBytes, (bytes - headerBytes) & ~1u);
    const ULONG header[] = {0, 0, nameBytes};
    std::memcpy(buffer, header, sizeof header);
    std::memcpy(static_cast<char *>(buffer) + headerBytes, name.data(), stored);
    ioStatus->Status = stored == nameBytes ? STATUS_SUCCESS : STATUS_BUFFER_OVERFLOW;
    ioStatus->Information = headerBytes + stored;
    return ioStatus->Status;
}

/// The class as a number: a caller may pass one that the enumeration does not hold.
ULONG numberOf(const FILE_INFORMATION_CLASS &informationClass) {
    ULONG number = 0;
    std::memcpy(&number, &informationClass, sizeof number);
    return number;
}

/// Whether Windows has an information class of that number for folders.
bool isFolderClass(ULONG number) {
    switch (number) {
    case FileDirectoryInformation:
    case FileFullDirectoryInformation:
    case FileBothDirectoryInformation:
    case FileNamesInformation:
    case 37: // with file ids
    case 38:
    case 60:
        return true;
    default:
        return false;
    }
}

} // namespace

// learn.microsoft.com: ZwQueryDirectoryFile
extern "C" NTSTATUS ZwQueryDirectoryFile(HANDLE directory, HANDLE event, PIO_APC_ROUTINE apcRoutine, PVOID,
                                         PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                         FILE_INFORMATION_CLASS informationClass, BOOLEAN single,
                                         PUNICODE_STRING pattern, BOOLEAN restart) {
    constexpr auto routine = "ZwQueryDirectoryFile";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    OpenFile *open = openFileOf(directory, routine, callSite);
    if (open == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    if (event != nullptr || apcRoutine != nullptr || !open->synchronous) {
        notSimulated(routine, "asynchronous queries", callSite);
    }
    const ULONG classNumber = numberOf(informationClass);
    if (!open->folder || !isFolderClass(classNumber)) {
        return open->folder ? STATUS_INVALID_INFO_CLASS : STATUS_INVALID_PARAMETER;
    }
    if (classNumber != FileNamesInformation || !single) {
        notSimulated(routine, "information class " + std::to_string(classNumber) + " or several entries per call",
                     callSite);
    }
    if ((open->access & FILE_LIST_DIRECTORY) == 0) {
        return STATUS_ACCESS_DENIED;
    }
    if (bytes < sizeof(FILE_NAMES_INFORMATION)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    kernel().pool.checkAccess(buffer, bytes, routine, callSite);
    std::lock_guard lock(kernel().internals->files.mutex);
    // The first call's pattern holds for the life of the handle.
    const bool first = !open->scan;
    if (first) {
        open->scan.emplace();
        open->scan->pattern = pattern == nullptr ? std::u16string{} : upcase(view(*pattern));
    }
    FolderScan &scan = *open->scan;
    scan.anyReturned = scan.anyReturned && !restart;
    const bool withDots = scan.pattern.empty() || scan.pattern == u"*";
    for (const FolderEntry &entry : listFolder(open->file->path, withDots)) {
        if ((scan.anyReturned && !comesAfter(entry, scan.lastName)) || !fits(entry, scan.pattern)) {
            continue;
        }
        const NTSTATUS status = writeEntry(entry.name, buffer, bytes, ioStatus);
        if (NT_SUCCESS(status)) {
            scan.lastName = entry.upperName;
            scan.anyReturned = true;
        }
        return status;
    }
    return first ? STATUS_NO_SUCH_FILE : STATUS_NO_MORE_FILES;
}
