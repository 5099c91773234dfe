#include "open_files.h"

#include "kernel.h"
#include "violation.h"

#include <unistd.h>

namespace sim {

namespace {

struct Wants {
    bool read;
    bool write;
    bool remove;
    bool any() const { return read || write || remove; }
};

Wants wantsOf(ACCESS_MASK access) {
    constexpr ACCESS_MASK fileExecute = 0x20;
    return {(access & (FILE_READ_DATA | fileExecute)) != 0, (access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0,
            (access & DELETE) != 0};
}

/// Adds `step` to every count that an open with this access and sharing takes part in.
void count(SharedFile &file, ACCESS_MASK access, ULONG share, unsigned step) {
    file.opens += step;
    const Wants wants = wantsOf(access);
    if (!wants.any()) {
        return;
    }
    file.counted += step;
    file.readers += wants.read ? step : 0;
    file.writers += wants.write ? step : 0;
    file.deleters += wants.remove ? step : 0;
    file.sharingRead += (share & FILE_SHARE_READ) != 0 ? step : 0;
    file.sharingWrite += (share & FILE_SHARE_WRITE) != 0 ? step : 0;
    file.sharingDelete += (share & FILE_SHARE_DELETE) != 0 ? step : 0;
}

} // namespace

std::shared_ptr<SharedFile> OpenFileTable::entry(const std::filesystem::path &path) {
    auto &file = files[path];
    if (!file) {
        file = std::make_shared<SharedFile>();
        file->path = path;
    }
    return file;
}

bool OpenFileTable::compatible(const SharedFile &file, ACCESS_MASK access, ULONG share) {
    const Wants wants = wantsOf(access);
    if (!wants.any()) {
        return true;
    }
    const bool othersAllow = (!wants.read || file.sharingRead == file.counted) &&
                             (!wants.write || file.sharingWrite == file.counted) &&
                             (!wants.remove || file.sharingDelete == file.counted);
    const bool allowsOthers = (file.readers == 0 || (share & FILE_SHARE_READ) != 0) &&
                              (file.writers == 0 || (share & FILE_SHARE_WRITE) != 0) &&
                              (file.deleters == 0 || (share & FILE_SHARE_DELETE) != 0);
    return othersAllow && allowsOthers;
}

void OpenFileTable::add(SharedFile &file, ACCESS_MASK access, ULONG share) {
    count(file, access, share, 1);
}

void OpenFileTable::close(OpenFile &open) {
    std::lock_guard lock(mutex);
    if (open.descriptor >= 0) {
        ::close(open.descriptor);
    }
    SharedFile &file = *open.file;
    count(file, open.access, open.share, static_cast<unsigned>(-1));
    file.deletePending = file.deletePending || open.deleteOnClose;
    if (file.opens == 0 && file.deletePending) {
        std::error_code folderNotEmpty; // such a folder simply stays
        std::filesystem::remove(file.path, folderNotEmpty);
        kernel().files.setAttributes(file.path, 0);
    }
    forget(file);
}

void OpenFileTable::forget(const SharedFile &file) {
    if (file.opens == 0) {
        files.erase(std::filesystem::path(file.path));
    }
}

OpenFile *openFileOf(HANDLE handle, const char *routine, const void *callSite) {
    void *body = kernel().objects.bodyOf(handle);
    const bool isFile = body != nullptr && kernel().objects.typeOf(body, routine, callSite) == ObjectType::file;
    return isFile ? static_cast<OpenFile *>(body) : nullptr;
}

} // namespace sim
