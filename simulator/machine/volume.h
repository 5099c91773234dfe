#pragma once

#include "../process/user_process.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace sim {

class DeviceNode;

/// Data that a program saved and that never came to the disk ("delayed write failed").
struct LostWrite {
    std::uint64_t offset = 0;
    std::size_t length = 0;
    NTSTATUS status = STATUS_SUCCESS;
};

/// What a mounted file system makes of a disk, as far as a person notices: no files, only data at places of the medium.
/// Programs save into the cache, which succeeds at once; the lazy writer brings it to the disk later. Thread-safe.
/// learn.microsoft.com: IOCTL_DISK_IS_WRITABLE; Microsoft's sample file system FASTFAT (source): it asks at the mount
/// only, and whatever the answer but STATUS_MEDIA_WRITE_PROTECTED, the volume is writable.
class Volume {
  public:
    /// Opens the disk, which must not be taken away meanwhile. From then on the open handle holds its stack.
    explicit Volume(const DeviceNode &disk);
    /// Mounts: asks the disk's stack whether it is writable, and closes the disk.
    void askWhetherWritable();

    NTSTATUS mountAnswer() const { return mountAnswer_; }
    bool readOnly() const { return mountAnswer_ == STATUS_MEDIA_WRITE_PROTECTED; }

    /// A program saves whole sectors: STATUS_MEDIA_WRITE_PROTECTED on a read-only volume, otherwise success.
    NTSTATUS save(std::uint64_t offset, std::vector<std::uint8_t> data);
    /// A program reads whole sectors: from the cache if it was saved there just so, otherwise from the disk.
    NTSTATUS load(std::uint64_t offset, std::size_t length, std::vector<std::uint8_t> &data);
    /// The lazy writer's turn. What fails is gone and is added to lostWrites.
    void writeBack();
    std::vector<LostWrite> lostWrites() const;
    std::size_t unwritten() const; ///< ranges in the cache

  private:
    NTSTATUS open(UserProcess::Handle &handle);

    const DeviceNode &disk_;
    UserProcess system_; ///< requests come from the system's own threads
    UserProcess::Handle mounting_ = 0;
    NTSTATUS mountAnswer_ = STATUS_SUCCESS;
    mutable std::mutex mutex_;
    std::map<std::uint64_t, std::vector<std::uint8_t>> cache_;
    std::vector<LostWrite> lost_;
};

} // namespace sim
