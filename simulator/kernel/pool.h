#pragma once

#include <ntifs.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// Every live pool block with tag, size, kind and call site. Thread-safe.
class Pool {
  public:
    struct Block {
        std::size_t size = 0;
        ULONG tag = 0;
        bool paged = false;
        bool ofKernel = false; ///< made by a kernel routine for the driver (freed with ExFreePool)
        const void *callSite = nullptr;
    };

    /// Null when there is not so much left of the machine's 1 GiB.
    void *allocate(std::size_t size, ULONG tag, bool paged, bool zeroed, bool ofKernel, const void *callSite);
    void free(void *block, ULONG tag, const void *callSite, const char *routine);
    /// The block that `address` lies in; nothing when it is not pool.
    std::optional<Block> blockAt(const void *address) const;
    /// bugCheck when [address, address+bytes) lies in paged pool and the thread is at DISPATCH_LEVEL or above, when it
    /// runs over the end of its block, or when it was freed a moment ago.
    void checkAccess(const void *address, std::size_t bytes, const char *routine, const void *callSite) const;

    std::size_t bytesInUse() const;
    std::size_t blocksInUse() const;
    std::size_t peakBytes() const;
    /// One line per driver block still allocated: tag, size, call site.
    std::vector<std::string> leaks() const;

    Pool() = default;
    ~Pool(); ///< gives back what is left
    Pool(const Pool &) = delete;
    Pool &operator=(const Pool &) = delete;

  private:
    struct FreedBlock {
        std::uintptr_t address = 0;
        Block block;
        const void *freedAt = nullptr;
    };
    Block blockToFree(std::uintptr_t address, const void *callSite, const char *routine) const;
    void retire(std::uintptr_t address, const Block &block, const void *callSite);
    void giveBack(const FreedBlock &freed) const;
    const FreedBlock *findFreed(std::uintptr_t address) const;

    mutable std::mutex mutex_;
    std::map<std::uintptr_t, Block> blocks_;
    std::deque<FreedBlock> freed_; ///< the last freed blocks, kept back to catch late use
    std::size_t bytes_ = 0;
    std::size_t peak_ = 0;
};

} // namespace sim
