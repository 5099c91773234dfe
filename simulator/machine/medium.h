#pragma once

#include "disk_description.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// The bytes that a disk's sectors hold, and the device's way of serving them. Thread-safe.
class Medium {
  public:
    /// Every byte is set, differently from sector to sector, so that a comparison shows what was written where.
    explicit Medium(const MediumDescription &description);

    std::uint64_t size() const { return size_; }
    std::uint32_t sectorBytes() const { return sectorBytes_; }
    std::vector<std::uint8_t> contents() const;
    std::vector<std::uint8_t> contents(std::uint64_t offset, std::size_t length) const;
    /// Whether every byte is as it was at first.
    bool unchanged() const;
    /// Sets bytes as another machine would; no driver sees it.
    void put(std::uint64_t offset, const std::vector<std::uint8_t> &bytes);

    bool writeProtected() const;
    void setWriteProtected(bool on);
    bool present() const;
    void setPresent(bool there);

    /// Transfers that drivers asked for and that were done.
    std::uint64_t reads() const;
    std::uint64_t writes() const;

    /// Stops serving transfers, as a device does that hangs. They wait until it goes on or is gone.
    void stall();
    void resume();
    std::size_t stalledTransfers() const;

    // The port driver's side. Offsets and lengths lie inside the medium.
    void read(std::uint64_t offset, std::uint8_t *into, std::size_t length);
    void write(std::uint64_t offset, const std::uint8_t *from, std::size_t length);
    /// Trimmed sectors read as zeros.
    void trim(std::uint64_t offset, std::uint64_t length);
    /// Runs `work` at once or, while the medium is stalled and `gone` says no, when that is over.
    void serve(const void *owner, const std::function<bool()> &gone, std::function<void()> work);
    /// The owner's device is gone (`gone` says so already): what waited for it runs.
    void abandon(const void *owner);

  private:
    std::uint8_t firstByte(std::size_t offset) const;

    struct Waiting {
        const void *owner;
        std::function<void()> work;
    };

    const std::uint64_t size_;
    const std::uint32_t sectorBytes_;
    mutable std::mutex mutex_;
    std::vector<std::uint8_t> bytes_;
    bool writeProtected_;
    bool present_;
    bool stalled_ = false;
    std::vector<Waiting> waiting_;
    std::uint64_t reads_ = 0;
    std::uint64_t writes_ = 0;
};

} // namespace sim
