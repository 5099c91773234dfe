// Reading and changing open files.

#include "internals.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace sim;

namespace {

constexpr LONG specialOffset = -1; ///< high part of an offset whose low part is one of the two special values

std::int64_t fileSize(const OpenFile &open) {
    struct stat information;
    return fstat(open.descriptor, &information) == 0 ? information.st_size : 0;
}

/// Where a write goes.
NTSTATUS writeOffset(const OpenFile &open, const LARGE_INTEGER *offset, std::int64_t &result) {
    const bool appendsOnly = (open.access & FILE_WRITE_DATA) == 0;
    const bool special = offset != nullptr && offset->HighPart == specialOffset;
    if (appendsOnly || (special && offset->LowPart == FILE_WRITE_TO_END_OF_FILE)) {
        result = fileSize(open);
    } else if (offset == nullptr || (special && offset->LowPart == FILE_USE_FILE_POINTER_POSITION)) {
        result = open.position;
    } else if (offset->QuadPart < 0) {
        return STATUS_INVALID_PARAMETER;
    } else {
        result = offset->QuadPart;
    }
    return STATUS_SUCCESS;
}

NTSTATUS writeAll(int descriptor, const char *bytes, ULONG count, std::int64_t offset) {
    while (count != 0) {
        const ssize_t written = pwrite(descriptor, bytes, count, offset);
        if (written <= 0) {
            return STATUS_DISK_FULL;
        }
        bytes += written;
        offset += written;
        count -= static_cast<ULONG>(written);
    }
    return STATUS_SUCCESS;
}

template<typename Information>
NTSTATUS answer(const Information &information, PVOID buffer, ULONG bytes, PIO_STATUS_BLOCK ioStatus) {
    if (bytes < sizeof information) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    std::memcpy(buffer, &information, sizeof information);
    ioStatus->Information = sizeof information;
    return STATUS_SUCCESS;
}

NTSTATUS queryFile(const OpenFile &open, PVOID buffer, ULONG bytes, FILE_INFORMATION_CLASS informationClass,
                   PIO_STATUS_BLOCK ioStatus, const void *callSite) {
    constexpr std::int64_t clusterBytes = 4096;
    if (informationClass == FileStandardInformation) {
        FILE_STANDARD_INFORMATION information{};
        const std::int64_t size = open.folder ? 0 : fileSize(open);
        information.EndOfFile.QuadPart = size;
        information.AllocationSize.QuadPart = (size + clusterBytes - 1) / clusterBytes * clusterBytes;
        information.NumberOfLinks = open.file->deletePending ? 0 : 1;
        information.DeletePending = open.file->deletePending;
        information.Directory = open.folder;
        return answer(information, buffer, bytes, ioStatus);
    }
    if (informationClass == FilePositionInformation) {
        FILE_POSITION_INFORMATION information{};
        information.CurrentByteOffset.QuadPart = open.position;
        return answer(information, buffer, bytes, ioStatus);
    }
    notSimulated("ZwQueryInformationFile", "information class " + std::to_string(informationClass), callSite);
}

/// Marks a file for deletion with its last close, or takes the mark away.
NTSTATUS setDisposition(OpenFile &open, bool deleteFile) {
    if ((open.access & DELETE) == 0) {
        return STATUS_ACCESS_DENIED;
    }
    if (deleteFile && (kernel().files.attributes(open.file->path) & FILE_ATTRIBUTE_READONLY) != 0) {
        return STATUS_CANNOT_DELETE;
    }
    if (deleteFile && open.folder && !std::filesystem::is_empty(open.file->path)) {
        return STATUS_DIRECTORY_NOT_EMPTY;
    }
    open.file->deletePending = deleteFile;
    return STATUS_SUCCESS;
}

NTSTATUS setFile(OpenFile &open, PVOID buffer, ULONG bytes, FILE_INFORMATION_CLASS informationClass,
                 const void *callSite) {
    switch (informationClass) {
    case FileDispositionInformation:
        return bytes < sizeof(FILE_DISPOSITION_INFORMATION)
                   ? STATUS_INFO_LENGTH_MISMATCH
                   : setDisposition(open, static_cast<PFILE_DISPOSITION_INFORMATION>(buffer)->DeleteFile != FALSE);
    case FilePositionInformation:
        if (bytes < sizeof(FILE_POSITION_INFORMATION)) {
            return STATUS_INFO_LENGTH_MISMATCH;
        }
        open.position = static_cast<PFILE_POSITION_INFORMATION>(buffer)->CurrentByteOffset.QuadPart;
        return open.position < 0 ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS;
    case FileEndOfFileInformation:
        if (bytes < sizeof(FILE_END_OF_FILE_INFORMATION)) {
            return STATUS_INFO_LENGTH_MISMATCH;
        }
        if ((open.access & FILE_WRITE_DATA) == 0) {
            return STATUS_ACCESS_DENIED;
        }
        return ftruncate(open.descriptor, static_cast<PFILE_END_OF_FILE_INFORMATION>(buffer)->EndOfFile.QuadPart) == 0
                   ? STATUS_SUCCESS
                   : STATUS_INVALID_PARAMETER;
    default:
        notSimulated("ZwSetInformationFile", "information class " + std::to_string(informationClass), callSite);
    }
}

} // namespace

// learn.microsoft.com: ZwWriteFile
extern "C" NTSTATUS ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE apcRoutine, PVOID, PIO_STATUS_BLOCK ioStatus,
                                PVOID buffer, ULONG bytes, PLARGE_INTEGER offset, PULONG) {
    constexpr auto routine = "ZwWriteFile";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    OpenFile *open = openFileOf(file, routine, callSite);
    if (open == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    if (event != nullptr || apcRoutine != nullptr || !open->synchronous) {
        notSimulated(routine, "asynchronous writes", callSite);
    }
    if (bytes != 0) {
        kernel().pool.checkAccess(buffer, bytes, routine, callSite);
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    if (open->folder) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if ((open->access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0) {
        return STATUS_ACCESS_DENIED;
    }
    std::lock_guard lock(kernel().internals->files.mutex);
    std::int64_t at = 0;
    NTSTATUS status = writeOffset(*open, offset, at);
    if (NT_SUCCESS(status)) {
        status = kernel().files.full() && bytes != 0
                     ? STATUS_DISK_FULL
                     : writeAll(open->descriptor, static_cast<char *>(buffer), bytes, at);
    }
    ioStatus->Status = status;
    ioStatus->Information = NT_SUCCESS(status) ? bytes : 0;
    if (NT_SUCCESS(status)) {
        open->position = at + bytes;
    }
    return status;
}

// learn.microsoft.com: ZwQueryInformationFile
extern "C" NTSTATUS ZwQueryInformationFile(HANDLE file, PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                           FILE_INFORMATION_CLASS informationClass) {
    constexpr auto routine = "ZwQueryInformationFile";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    const OpenFile *open = openFileOf(file, routine, callSite);
    if (open == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    kernel().pool.checkAccess(buffer, bytes, routine, callSite);
    std::lock_guard lock(kernel().internals->files.mutex);
    ioStatus->Information = 0;
    ioStatus->Status = queryFile(*open, buffer, bytes, informationClass, ioStatus, callSite);
    return ioStatus->Status;
}

// learn.microsoft.com: ZwSetInformationFile
extern "C" NTSTATUS ZwSetInformationFile(HANDLE file, PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                         FILE_INFORMATION_CLASS informationClass) {
    constexpr auto routine = "ZwSetInformationFile";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    OpenFile *open = openFileOf(file, routine, callSite);
    if (open == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    kernel().pool.checkAccess(buffer, bytes, routine, callSite);
    std::lock_guard lock(kernel().internals->files.mutex);
    ioStatus->Information = 0;
    ioStatus->Status = setFile(*open, buffer, bytes, informationClass, callSite);
    return ioStatus->Status;
}
