#pragma once

#include <ntifs.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// What a disk answers to one control code that its drivers do not know themselves.
struct DiskControlAnswer {
    NTSTATUS status = STATUS_SUCCESS;
    std::vector<std::uint8_t> output; ///< cut to the caller's buffer
};

/// How a disk's storage descriptor departs from a well-made one (learn.microsoft.com: STORAGE_DEVICE_DESCRIPTOR).
struct StorageAnswer {
    std::optional<NTSTATUS> failure;      ///< the query fails with this
    std::optional<std::uint32_t> size;    ///< what the Size field says instead of the truth
    std::optional<std::uint32_t> version; ///< what the Version field says
    std::optional<std::uint32_t> vendorOffset;
    std::optional<std::uint32_t> productOffset;
    std::optional<std::uint32_t> revisionOffset;
    std::optional<std::uint32_t> serialOffset;
    bool terminated = true;                           ///< false: the last string ends with the descriptor, without NUL
    std::optional<std::uint32_t> shortenTo;           ///< cut the answer to this many bytes (Information too)
    std::optional<std::vector<std::uint8_t>> replace; ///< answer these bytes instead
    /// The answer to a buffer that is too small for the whole: success on ordinary stacks, STATUS_BUFFER_OVERFLOW on
    /// some. The bytes that fit come with both.
    NTSTATUS shortBuffer = STATUS_SUCCESS;
};

/// The medium a disk comes with. Its bytes outlive the disk's being pulled out and plugged in again.
struct MediumDescription {
    std::uint64_t bytes = 64 * 1024;
    std::uint32_t sectorBytes = 512;
    bool present = true;         ///< false: an empty reader
    bool writeProtected = false; ///< the lock switch of the medium
};

/// A disk as the port driver below it sees it: a logical unit with its strings and its medium.
struct DiskDescription {
    /// STORAGE_BUS_TYPE: 7 USB, 11 SATA, 12 SD, 13 MMC, 17 NVMe. Absent: that of the port driver.
    std::optional<std::uint32_t> busType;
    bool removableMedia = false;
    /// As the device sends them, blanks and all; absent ones have offset 0 in the descriptor.
    std::optional<std::string> vendor;
    std::optional<std::string> product;
    std::optional<std::string> revision;
    std::optional<std::string> serial;
    StorageAnswer storageAnswer;
    bool answersLater = false; ///< its requests are pended and completed in another thread
    MediumDescription medium;
    std::map<std::uint32_t, DiskControlAnswer> controlAnswers; ///< by control code
    bool mounts = true; ///< a file system mounts the medium when the disk arrives
};

} // namespace sim
