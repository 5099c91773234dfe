// Opening, creating and deleting files by name.

#include "generic_rights.h"
#include "handles.h"
#include "internals.h"
#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

using namespace sim;

namespace {

constexpr ULONG synchronousOptions = FILE_SYNCHRONOUS_IO_ALERT | FILE_SYNCHRONOUS_IO_NONALERT;
constexpr ULONG shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// What a caller asks for.
struct OpenRequest {
    ACCESS_MASK access;
    ULONG fileAttributes;
    ULONG share;
    ULONG disposition;
    ULONG options;
};

bool overwrites(ULONG disposition) {
    return disposition == FILE_SUPERSEDE || disposition == FILE_OVERWRITE || disposition == FILE_OVERWRITE_IF;
}

/// The full NT path that the attributes name. A relative name is taken from its root folder's place on the host.
NTSTATUS resolve(const OBJECT_ATTRIBUTES &attributes, const char *routine, const void *callSite,
                 std::filesystem::path &host) {
    const std::u16string_view name = view(*attributes.ObjectName);
    const std::u16string upper = upcase(name.substr(0, 12));
    if (upper.starts_with(u"\\??\\") || upper.starts_with(u"\\DOSDEVICES\\") || upper.starts_with(u"\\DEVICE\\")) {
        notSimulated(routine, "opening " + toUtf8(name), callSite);
    }
    if (name.find_first_of(u":*?\"<>|/") != std::u16string_view::npos ||
        name.find(u"\\\\") != std::u16string_view::npos) {
        return STATUS_OBJECT_NAME_INVALID;
    }
    FileSystem &files = kernel().files;
    if (attributes.RootDirectory != nullptr) {
        const OpenFile *root = openFileOf(attributes.RootDirectory, routine, callSite);
        if (root == nullptr) {
            return STATUS_INVALID_HANDLE;
        }
        if (name.find(u'\\') != std::u16string_view::npos) {
            notSimulated(routine, "a relative name of several components", callSite);
        }
        const auto found = FileSystem::findEntry(root->file->path, name);
        host = name.empty() ? root->file->path : found ? *found : root->file->path / toUtf8(name);
        return STATUS_SUCCESS;
    }
    if (!name.starts_with(u'\\')) {
        return STATUS_OBJECT_PATH_SYNTAX_BAD;
    }
    const auto path = files.mounted() ? files.hostPath(name) : std::nullopt;
    if (!path) {
        return STATUS_OBJECT_PATH_NOT_FOUND;
    }
    host = *path;
    return std::filesystem::is_directory(host.parent_path()) ? STATUS_SUCCESS : STATUS_OBJECT_PATH_NOT_FOUND;
}

NTSTATUS checkRequest(const OpenRequest &request) {
    const bool folder = (request.options & FILE_DIRECTORY_FILE) != 0;
    const bool bothSynchronous = (request.options & synchronousOptions) == synchronousOptions;
    if (request.disposition > FILE_OVERWRITE_IF || bothSynchronous || (request.share & ~shareAll) != 0 ||
        (folder && ((request.options & FILE_NON_DIRECTORY_FILE) != 0 || overwrites(request.disposition)))) {
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

/// Whether an existing file or folder may be opened so; sharing aside.
NTSTATUS checkExisting(const std::filesystem::path &path, const OpenRequest &request) {
    if (std::filesystem::is_directory(path)) {
        if ((request.options & FILE_NON_DIRECTORY_FILE) != 0) {
            return STATUS_FILE_IS_A_DIRECTORY;
        }
        const bool opens = request.disposition == FILE_OPEN || request.disposition == FILE_OPEN_IF;
        return opens ? STATUS_SUCCESS : STATUS_OBJECT_NAME_COLLISION;
    }
    if (request.disposition == FILE_CREATE) {
        return STATUS_OBJECT_NAME_COLLISION;
    }
    if ((request.options & FILE_DIRECTORY_FILE) != 0) {
        return STATUS_NOT_A_DIRECTORY;
    }
    const ULONG attributes = kernel().files.attributes(path);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        if ((request.options & FILE_DELETE_ON_CLOSE) != 0) {
            return STATUS_CANNOT_DELETE;
        }
        if (overwrites(request.disposition) || (request.access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0) {
            return STATUS_ACCESS_DENIED;
        }
    }
    constexpr ULONG mustBeRepeated = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    const ULONG notRepeated = attributes & mustBeRepeated & ~request.fileAttributes;
    return overwrites(request.disposition) && notRepeated != 0 ? STATUS_ACCESS_DENIED : STATUS_SUCCESS;
}

/// Makes the folder or opens the host's file; `information` tells what happened.
NTSTATUS openOnHost(OpenFile &open, const OpenRequest &request, bool exists, ULONG_PTR &information) {
    const std::filesystem::path &path = open.file->path;
    open.folder = exists ? std::filesystem::is_directory(path) : (request.options & FILE_DIRECTORY_FILE) != 0;
    information = exists ? FILE_OPENED : FILE_CREATED;
    if (open.folder) {
        std::error_code error;
        if (!exists) {
            std::filesystem::create_directory(path, error);
        }
        return error ? STATUS_ACCESS_DENIED : STATUS_SUCCESS;
    }
    const bool truncates = exists && overwrites(request.disposition);
    open.descriptor =
        ::open(path.c_str(), O_RDWR | O_CLOEXEC | (exists ? 0 : O_CREAT | O_EXCL) | (truncates ? O_TRUNC : 0), 0644);
    if (open.descriptor < 0) {
        return STATUS_ACCESS_DENIED;
    }
    if (truncates) {
        information = request.disposition == FILE_SUPERSEDE ? FILE_SUPERSEDED : FILE_OVERWRITTEN;
    }
    if (!exists || truncates) {
        kernel().files.setAttributes(path, request.fileAttributes);
    }
    return STATUS_SUCCESS;
}

NTSTATUS openHost(const std::filesystem::path &path, const OpenRequest &request, std::unique_ptr<OpenFile> &result,
                  ULONG_PTR &information) {
    OpenFileTable &table = kernel().internals->files;
    std::lock_guard lock(table.mutex);
    const bool exists = std::filesystem::exists(path);
    if (!exists && (request.disposition == FILE_OPEN || request.disposition == FILE_OVERWRITE)) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    auto open = std::make_unique<OpenFile>();
    open->file = table.entry(path);
    open->access = request.access;
    open->share = request.share;
    open->synchronous = (request.options & synchronousOptions) != 0;
    open->deleteOnClose = (request.options & FILE_DELETE_ON_CLOSE) != 0;
    NTSTATUS status = STATUS_SUCCESS;
    if (open->file->deletePending) {
        status = STATUS_DELETE_PENDING;
    } else if (exists) {
        status = checkExisting(path, request);
    }
    // An overwriting open counts as one for writing, whatever else it asks for.
    const ACCESS_MASK sharedAccess =
        request.access | (overwrites(request.disposition) ? FILE_WRITE_DATA : 0) | (open->deleteOnClose ? DELETE : 0);
    if (NT_SUCCESS(status) && !OpenFileTable::compatible(*open->file, sharedAccess, request.share)) {
        status = STATUS_SHARING_VIOLATION;
    }
    if (NT_SUCCESS(status)) {
        status = openOnHost(*open, request, exists, information);
    }
    if (!NT_SUCCESS(status)) {
        table.forget(*open->file);
        return status;
    }
    OpenFileTable::add(*open->file, open->access, open->share);
    result = std::move(open);
    return STATUS_SUCCESS;
}

/// All opens by name go through here.
NTSTATUS openByName(POBJECT_ATTRIBUTES attributes, OpenRequest request, HANDLE &handle, ULONG_PTR &information,
                    const char *routine, const void *callSite) {
    requirePassive(routine, callSite);
    requireKernelHandle(attributes->Attributes, routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    if (attributes->Length != sizeof(OBJECT_ATTRIBUTES) || attributes->ObjectName == nullptr) {
        return STATUS_INVALID_PARAMETER;
    }
    request.access = mapGenericRights(request.access);
    std::filesystem::path host;
    NTSTATUS status = checkRequest(request);
    if (NT_SUCCESS(status)) {
        status = resolve(*attributes, routine, callSite, host);
    }
    std::unique_ptr<OpenFile> open;
    if (NT_SUCCESS(status)) {
        status = openHost(host, request, open, information);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    OpenFile *body = open.release();
    kernel().objects.insert(body, ObjectType::file, {}, [body] {
        kernel().internals->files.close(*body);
        delete body;
    });
    handle =
        kernel().objects.openHandle(body, request.access, callSite, (attributes->Attributes & OBJ_KERNEL_HANDLE) != 0);
    kernel().objects.dereference(body, nullptr);
    return STATUS_SUCCESS;
}

NTSTATUS createFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes, PIO_STATUS_BLOCK ioStatus,
                    const OpenRequest &request, const char *routine, const void *callSite) {
    HANDLE handle = nullptr;
    ULONG_PTR information = 0;
    OpenRequest full = request;
    full.access = access;
    const NTSTATUS status = openByName(attributes, full, handle, information, routine, callSite);
    ioStatus->Status = status;
    ioStatus->Information = information;
    if (NT_SUCCESS(status)) {
        *file = handle;
    }
    return status;
}

} // namespace

// learn.microsoft.com: ZwCreateFile. Kernel callers need no SYNCHRONIZE for synchronous I/O.
extern "C" NTSTATUS ZwCreateFile(PHANDLE file, ACCESS_MASK desiredAccess, POBJECT_ATTRIBUTES attributes,
                                 PIO_STATUS_BLOCK ioStatus, PLARGE_INTEGER, ULONG fileAttributes, ULONG shareAccess,
                                 ULONG disposition, ULONG options, PVOID extendedAttributes, ULONG) {
    if (extendedAttributes != nullptr) {
        notSimulated("ZwCreateFile", "extended attributes", SIM_CALL_SITE);
    }
    return createFile(file, desiredAccess, attributes, ioStatus,
                      {desiredAccess, fileAttributes, shareAccess, disposition, options}, "ZwCreateFile",
                      SIM_CALL_SITE);
}

// learn.microsoft.com: ZwOpenFile
extern "C" NTSTATUS ZwOpenFile(PHANDLE file, ACCESS_MASK desiredAccess, POBJECT_ATTRIBUTES attributes,
                               PIO_STATUS_BLOCK ioStatus, ULONG shareAccess, ULONG options) {
    return createFile(file, desiredAccess, attributes, ioStatus, {desiredAccess, 0, shareAccess, FILE_OPEN, options},
                      "ZwOpenFile", SIM_CALL_SITE);
}

// learn.microsoft.com: ZwDeleteFile. An open for deletion that shares everything, closed at once.
extern "C" NTSTATUS ZwDeleteFile(POBJECT_ATTRIBUTES attributes) {
    HANDLE handle = nullptr;
    ULONG_PTR information = 0;
    const NTSTATUS status = openByName(attributes, {DELETE, 0, shareAll, FILE_OPEN, FILE_DELETE_ON_CLOSE}, handle,
                                       information, "ZwDeleteFile", SIM_CALL_SITE);
    if (NT_SUCCESS(status)) {
        kernel().objects.closeHandle(handle);
    }
    return status;
}
