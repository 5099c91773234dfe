#pragma once

#include <ntifs.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Maps "\SystemRoot" onto a folder of the host's disk. An empty path makes a temporary one; a folder that was made
/// here is removed with the machine unless it is to be kept. A "Temp" folder is there from the start. Names are matched
/// without regard to case. Zw file routines work on it; sharing and delete-pending follow NTFS. Thread-safe.
class FileSystem {
  public:
    explicit FileSystem(std::filesystem::path systemRoot, bool keep);
    ~FileSystem();

    const std::filesystem::path &systemRoot() const { return systemRoot_; }
    /// Host path of an NT path below \SystemRoot, found without regard to case; the last component may be missing.
    std::optional<std::filesystem::path> hostPath(std::u16string_view ntPath) const;
    /// The entry of a host folder with that name, found without regard to case.
    static std::optional<std::filesystem::path> findEntry(const std::filesystem::path &folder,
                                                          std::u16string_view name);
    bool mounted() const; ///< false: every open fails as it does before the boot volume is there
    void setMounted(bool mounted);
    bool full() const;
    void setFull(bool full); ///< writes fail with STATUS_DISK_FULL
    /// FILE_ATTRIBUTE_READONLY, _HIDDEN and _SYSTEM of a file on the host's disk; they last as long as the machine.
    ULONG attributes(const std::filesystem::path &file) const;
    void setAttributes(const std::filesystem::path &file, ULONG attributes);

    // What a test puts there and finds there. Names are UTF-8, relative to \SystemRoot\Temp.
    void putTempFile(std::string_view name, std::string_view bytes);
    std::vector<std::string> tempFiles() const; ///< sorted
    std::optional<std::string> tempFile(std::string_view name) const;

  private:
    std::filesystem::path systemRoot_;
    bool removeAtEnd_ = false;
    std::atomic<bool> mounted_ = true;
    std::atomic<bool> full_ = false;
    mutable std::mutex mutex_;
    std::map<std::filesystem::path, ULONG> attributes_;
};

} // namespace sim
