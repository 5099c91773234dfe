#include "log/kstring.h"
#include "log/log_writer.h"
#include "support/kernel_handle.h"
#include "support/pool_memory.h"

namespace {

constexpr ULONG listingBufferBytes = 272;

RTL_GENERIC_COMPARE_RESULTS NTAPI compareNames(PRTL_AVL_TABLE, PVOID first, PVOID second) {
    const LONG order =
        RtlCompareUnicodeString(&static_cast<KString *>(first)->view(), &static_cast<KString *>(second)->view(), FALSE);
    return order < 0 ? GenericLessThan : order > 0 ? GenericGreaterThan : GenericEqual;
}

PVOID NTAPI allocateName(PRTL_AVL_TABLE, CLONG bytes) {
    return ExAllocatePool2(POOL_FLAG_PAGED, bytes, tableEntryPoolTag);
}

VOID NTAPI freeName(PRTL_AVL_TABLE, PVOID buffer) {
    // The table passes what allocateName returned: its links, with the name behind them.
    reinterpret_cast<KString *>(static_cast<PRTL_BALANCED_LINKS>(buffer) + 1)->~KString();
    ExFreePoolWithTag(buffer, tableEntryPoolTag);
}

/// File names in binary order, each once.
class [[nodiscard]] NameTable {
  public:
    NameTable() { RtlInitializeGenericTableAvl(&table_, compareNames, allocateName, freeName, nullptr); }
    ~NameTable() {
        while (KString *name = smallest()) {
            RtlDeleteElementGenericTableAvl(&table_, name);
        }
    }
    NameTable(const NameTable &) = delete;
    NameTable &operator=(const NameTable &) = delete;

    NTSTATUS insert(const UNICODE_STRING &text) {
        KString name;
        const NTSTATUS status = name.copyFrom(text);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        BOOLEAN isNew = FALSE;
        auto *element =
            static_cast<KString *>(RtlInsertElementGenericTableAvl(&table_, &name, sizeof(KString), &isNew));
        if (element == nullptr) {
            return STATUS_INSUFFICIENT_RESOURCES;
        }
        if (isNew) {
            name.forget(); // the table copied the bytes; its element owns the text
        } else {
            *element = static_cast<KString &&>(name);
        }
        return STATUS_SUCCESS;
    }
    ULONG count() { return RtlNumberGenericTableElementsAvl(&table_); }
    KString *smallest() { return static_cast<KString *>(RtlGetElementGenericTableAvl(&table_, 0)); }
    bool remove(KString *name) { return RtlDeleteElementGenericTableAvl(&table_, name) != FALSE; }

  private:
    RTL_AVL_TABLE table_;
};

NTSTATUS openDirectory(const UNICODE_STRING &path, KernelHandle &directory) {
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, const_cast<PUNICODE_STRING>(&path),
                               OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    IO_STATUS_BLOCK result{};
    return ZwOpenFile(directory.receive(), GENERIC_READ, &attributes, &result,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT);
}

/// Collects the names that begin with the prefix; STATUS_SUCCESS at the end of the directory.
NTSTATUS listFiles(const Logger &log, HANDLE directory, NameTable &names) {
    LogStream pattern(POOL_FLAG_PAGED);
    pattern.append(log.prefix).append(L"*");
    PoolMemory buffer(POOL_FLAG_PAGED, listingBufferBytes);
    if (pattern.failed() || !buffer) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    UNICODE_STRING patternText = pattern.counted();
    auto *entry = buffer.as<FILE_NAMES_INFORMATION>();
    constexpr USHORT mostCharacters =
        (listingBufferBytes - FIELD_OFFSET(FILE_NAMES_INFORMATION, FileName)) / sizeof(WCHAR);
    for (;;) {
        RtlZeroMemory(entry, listingBufferBytes);
        IO_STATUS_BLOCK result{};
        NTSTATUS status = ZwQueryDirectoryFile(directory, nullptr, nullptr, nullptr, &result, entry, listingBufferBytes,
                                               FileNamesInformation, TRUE, &patternText, FALSE);
        if (status == STATUS_NO_MORE_FILES) {
            return STATUS_SUCCESS;
        }
        if (!NT_SUCCESS(status)) {
            return status;
        }
        status = names.insert(fieldText(entry->FileName, mostCharacters));
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
}

NTSTATUS deleteFile(const Logger &log, const UNICODE_STRING &name) {
    LogStream path(POOL_FLAG_PAGED);
    path.append(log.directory).append(L"\\").append(name);
    if (path.failed()) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    UNICODE_STRING pathText = path.counted();
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &pathText, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    return ZwDeleteFile(&attributes);
}

} // namespace

NTSTATUS rotateLogFiles(const Logger &log) {
    NameTable names;
    KernelHandle directory;
    NTSTATUS status = openDirectory(log.directory, directory);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = listFiles(log, directory.get(), names);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    while (names.count() > log.fileLimit) {
        KString *oldest = names.smallest();
        status = deleteFile(log, *oldest);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        if (!names.remove(oldest)) {
            return STATUS_UNSUCCESSFUL;
        }
    }
    return STATUS_SUCCESS;
}
