#pragma once

#include <ntifs.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace sim {

/// Who has a file or folder open and what they share. learn.microsoft.com: IoCheckShareAccess.
struct SharedFile {
    std::filesystem::path path;
    unsigned opens = 0;   ///< all of them
    unsigned counted = 0; ///< those that asked for read, write or delete access
    unsigned readers = 0;
    unsigned writers = 0;
    unsigned deleters = 0;
    unsigned sharingRead = 0;
    unsigned sharingWrite = 0;
    unsigned sharingDelete = 0;
    bool deletePending = false;
};

/// What a scan of a folder remembers between calls.
struct FolderScan {
    std::u16string pattern;   ///< upcased; empty: everything
    std::u16string lastName;  ///< upcased name returned last
    bool anyReturned = false; ///< lastName means something
    bool restart = false;
};

/// One successful open; the body of a file object.
struct OpenFile {
    std::shared_ptr<SharedFile> file;
    ACCESS_MASK access = 0;
    ULONG share = 0;
    bool folder = false;
    bool synchronous = false;
    bool deleteOnClose = false;
    int descriptor = -1; ///< the host's; -1 for folders
    std::int64_t position = 0;
    std::optional<FolderScan> scan;
};

/// Every file and folder that is open, by host path. All of it, the open files too, is guarded by the lock.
class OpenFileTable {
  public:
    std::mutex mutex;
    std::map<std::filesystem::path, std::shared_ptr<SharedFile>> files;

    std::shared_ptr<SharedFile> entry(const std::filesystem::path &path);
    /// Whether an open with this access and sharing fits those that exist.
    static bool compatible(const SharedFile &file, ACCESS_MASK access, ULONG share);
    static void add(SharedFile &file, ACCESS_MASK access, ULONG share);
    /// The last step of a file object's life: closes the host's descriptor, deletes what is to be deleted.
    void close(OpenFile &open);
    /// Forgets an entry that nobody has open.
    void forget(const SharedFile &file);
};

/// The open file behind a handle; null when the handle is not open or on something else.
OpenFile *openFileOf(HANDLE handle, const char *routine, const void *callSite);

} // namespace sim
