#include "log/log_writer.h"

#include "support/kernel_handle.h"
#include "support/pool_memory.h"

namespace {

/// Deletes the record and its work item when the worker is done with them, whatever became of the record.
class [[nodiscard]] WorkerCleanup {
  public:
    WorkerCleanup(LogStream *record, PIO_WORKITEM workItem) : record_(record), workItem_(workItem) {}
    ~WorkerCleanup() {
        LogStream::destroySubmitted(record_);
        IoFreeWorkItem(workItem_);
    }
    WorkerCleanup(const WorkerCleanup &) = delete;
    WorkerCleanup &operator=(const WorkerCleanup &) = delete;

  private:
    LogStream *record_;
    PIO_WORKITEM workItem_;
};

/// Keeps the logger alive and its lock held; empty when the log is closed or closing.
class [[nodiscard]] LoggerLock {
  public:
    LoggerLock() {
        if (!enterLogger()) {
            return;
        }
        log_ = logger;
        KeWaitForSingleObject(&log_->lock, Executive, KernelMode, FALSE, nullptr);
    }
    ~LoggerLock() {
        if (log_ != nullptr) {
            KeSetEvent(&log_->lock, IO_NO_INCREMENT, FALSE);
            leaveLogger();
        }
    }
    LoggerLock(const LoggerLock &) = delete;
    LoggerLock &operator=(const LoggerLock &) = delete;

    /// The logger to write to; null when this record came too late.
    Logger *get() const { return log_ != nullptr && !isLoggerClosing() ? log_ : nullptr; }

  private:
    Logger *log_ = nullptr;
};

struct Utf8Text {
    PoolMemory bytes;
    ULONG size = 0;
};

bool convertToUtf8(const LogStream &record, Utf8Text &converted) {
    // A lone surrogate makes the conversion answer STATUS_SOME_NOT_MAPPED, which is a success.
    const auto sourceBytes = static_cast<ULONG>(record.length());
    ULONG size = 0;
    if (!NT_SUCCESS(RtlUnicodeToUTF8N(nullptr, 0, &size, record.text(), sourceBytes))) {
        return false;
    }
    PoolMemory bytes(POOL_FLAG_PAGED, size);
    if (!bytes || !NT_SUCCESS(RtlUnicodeToUTF8N(bytes.as<CHAR>(), size, &size, record.text(), sourceBytes))) {
        return false;
    }
    converted.bytes = static_cast<PoolMemory &&>(bytes);
    converted.size = size;
    return true;
}

NTSTATUS ensureDirectory(const UNICODE_STRING &path) {
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, const_cast<PUNICODE_STRING>(&path),
                               OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    IO_STATUS_BLOCK result{};
    KernelHandle directory;
    return ZwCreateFile(directory.receive(), GENERIC_READ | SYNCHRONIZE, &attributes, &result, nullptr, 0,
                        FILE_SHARE_READ, FILE_OPEN_IF, FILE_DIRECTORY_FILE, nullptr, 0);
}

NTSTATUS createFile(const UNICODE_STRING &path, HANDLE &file) {
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, const_cast<PUNICODE_STRING>(&path),
                               OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    IO_STATUS_BLOCK result{};
    KernelHandle handle;
    const NTSTATUS status = ZwCreateFile(handle.receive(), GENERIC_WRITE, &attributes, &result, nullptr, 0,
                                         FILE_SHARE_READ, FILE_OVERWRITE_IF, FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    if (NT_SUCCESS(status)) {
        file = handle.detach();
    }
    return status;
}

ULONG secondsSince1970() {
    LARGE_INTEGER now;
    KeQuerySystemTimePrecise(&now);
    ULONG seconds = 0;
    return RtlTimeToSecondsSince1970(&now, &seconds) ? seconds : 0;
}

void closeFile(Logger &log) {
    if (log.file != nullptr) {
        ZwClose(log.file);
        log.file = nullptr;
    }
    log.written = -1;
}

/// Makes a fresh file the current one. False when that fails: the old file, if any, stays current.
bool switchFile(Logger &log) {
    LogStream directory(POOL_FLAG_PAGED);
    directory.append(log.directory);
    if (directory.failed() || !NT_SUCCESS(ensureDirectory(directory.counted()))) {
        return false;
    }
    LogStream path(POOL_FLAG_PAGED);
    path.append(log.directory).append(L"\\").append(log.prefix).append(log.name).append(L"-");
    path.appendUnsigned32(secondsSince1970()).append(L".").append(log.extension);
    HANDLE file = nullptr;
    if (path.failed()) {
        return false;
    }
    NTSTATUS status = createFile(path.counted(), file);
    if (status == STATUS_SHARING_VIOLATION && log.file != nullptr) {
        // A second switch within one second asks for the very file that is open here, and this handle does not share
        // writing. The new file takes the old one's place, so the old one goes first.
        closeFile(log);
        status = createFile(path.counted(), file);
    }
    if (!NT_SUCCESS(status)) {
        return false;
    }
    closeFile(log);
    log.file = file;
    log.written = 0;
    (void)rotateLogFiles(log);
    return true;
}

void writeText(Logger &log, const Utf8Text &text) {
    const bool full = log.written >= 0 && static_cast<ULONG64>(log.written) + text.size > log.sizeLimit;
    if ((log.written < 0 || full) && !switchFile(log)) {
        return;
    }
    LARGE_INTEGER offset;
    offset.QuadPart = __atomic_fetch_add(&log.written, LONG64{text.size}, __ATOMIC_RELAXED);
    IO_STATUS_BLOCK result{};
    (void)ZwWriteFile(log.file, nullptr, nullptr, nullptr, &result, text.bytes.get(), text.size, &offset, nullptr);
}

/// The work item's routine: writes one record. PASSIVE_LEVEL, several at once.
VOID writeLogRecord(PVOID, PVOID context, PIO_WORKITEM workItem) {
    auto *record = static_cast<LogStream *>(context);
    WorkerCleanup cleanup(record, workItem);
    Utf8Text text;
    if (!convertToUtf8(*record, text)) {
        return;
    }
    LoggerLock lock;
    if (Logger *log = lock.get(); log != nullptr) {
        writeText(*log, text);
    }
}

} // namespace

void queueLogRecord(LogStream *record) {
    PIO_WORKITEM workItem = IoAllocateWorkItem(static_cast<PDEVICE_OBJECT>(logger->ioObject));
    if (workItem == nullptr) {
        LogStream::destroySubmitted(record);
        return;
    }
    IoQueueWorkItemEx(workItem, writeLogRecord, DelayedWorkQueue, record);
}
