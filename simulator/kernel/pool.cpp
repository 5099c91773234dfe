#include "pool.h"

#include "internals.h"
#include "resource_table.h"
#include "sanitizer.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace sim {

namespace {

constexpr unsigned char freshPattern = 0xCD;
constexpr unsigned char freedPattern = 0xDD;
constexpr unsigned char guardPattern = 0xFD;
/// Under AddressSanitizer its own red zones and quarantine do the work of the guard bytes and of the kept-back blocks.
constexpr std::size_t guardBytes = SIM_ADDRESS_SANITIZER ? 0 : 16;
constexpr std::size_t keptBack = SIM_ADDRESS_SANITIZER ? 0 : 256;
constexpr std::size_t largestKeptBack = 64 * 1024;
/// What this machine has. A request that does not fit fails as on any machine whose memory is short.
constexpr std::size_t wholePool = std::size_t{1} << 30;

std::string tagText(ULONG tag) {
    std::string text = "'";
    for (int shift = 0; shift < 32; shift += 8) {
        const char character = static_cast<char>(tag >> shift);
        text += character >= 0x20 && character < 0x7f ? character : '.';
    }
    return text + "'";
}

std::string describeBlock(std::uintptr_t address, const Pool::Block &block) {
    return std::string(block.paged ? "paged" : "non-paged") + " pool " + hex(address) + ", tag " + tagText(block.tag) +
           ", " + std::to_string(block.size) + " bytes, allocated by " + describeCodeAddress(block.callSite);
}

bool allEqual(const unsigned char *bytes, std::size_t count, unsigned char value) {
    return std::all_of(bytes, bytes + count, [value](unsigned char byte) { return byte == value; });
}

} // namespace

Pool::~Pool() {
    for (const auto &[address, block] : blocks_) {
        std::free(reinterpret_cast<void *>(address));
    }
    for (const FreedBlock &freed : freed_) {
        std::free(reinterpret_cast<void *>(freed.address));
    }
}

void *Pool::allocate(std::size_t size, ULONG tag, bool paged, bool zeroed, bool ofKernel, const void *callSite) {
    const std::size_t alignment = size >= PAGE_SIZE ? PAGE_SIZE : MEMORY_ALLOCATION_ALIGNMENT;
    void *memory = nullptr;
    if (size > wholePool - std::min(bytesInUse(), wholePool) ||
        posix_memalign(&memory, alignment, size + guardBytes) != 0) {
        return nullptr;
    }
    std::memset(memory, zeroed ? 0 : freshPattern, size);
    std::memset(static_cast<char *>(memory) + size, guardPattern, guardBytes);
    std::lock_guard lock(mutex_);
    blocks_.emplace(reinterpret_cast<std::uintptr_t>(memory), Block{size, tag, paged, ofKernel, callSite});
    bytes_ += size;
    peak_ = std::max(peak_, bytes_);
    return memory;
}

void Pool::free(void *address, ULONG tag, const void *callSite, const char *routine) {
    const auto key = reinterpret_cast<std::uintptr_t>(address);
    const Block block = blockToFree(key, callSite, routine);
    if (tag != 0 && tag != block.tag) {
        bugCheck("pool tag", routine,
                 "freed with tag " + tagText(tag) + ": " + describeBlock(key, block) + " (bug check 0xC2, 0x0A)",
                 callSite);
    }
    requireIrqlAtMost(block.paged ? APC_LEVEL : DISPATCH_LEVEL, routine, callSite);
    if (!allEqual(static_cast<unsigned char *>(address) + block.size, guardBytes, guardPattern)) {
        bugCheck("pool overrun", routine, "bytes behind the block were written: " + describeBlock(key, block),
                 callSite);
    }
    requireNoLiveResource(address, block.size, routine, callSite);
    kernel().internals->lockOrder.forget(address, block.size);
    bool freedMeanwhile = false;
    {
        std::lock_guard lock(mutex_);
        freedMeanwhile = blocks_.erase(key) == 0;
        bytes_ -= freedMeanwhile ? 0 : block.size;
    }
    if (freedMeanwhile) {
        bugCheck("double free", routine, "freed by two threads at once: " + describeBlock(key, block), callSite);
    }
    retire(key, block, callSite);
}

Pool::Block Pool::blockToFree(std::uintptr_t address, const void *callSite, const char *routine) const {
    std::optional<FreedBlock> freed;
    {
        std::lock_guard lock(mutex_);
        if (const auto found = blocks_.find(address); found != blocks_.end()) {
            return found->second;
        }
        if (const FreedBlock *before = findFreed(address); before != nullptr && before->address == address) {
            freed = *before;
        }
    }
    if (freed) {
        bugCheck("double free", routine,
                 "freed twice: " + describeBlock(address, freed->block) + ", freed first by " +
                     describeCodeAddress(freed->freedAt) + " (bug check 0xC2, 0x07)",
                 callSite);
    }
    bugCheck("pool address", routine, hex(address) + " is not the start of a live pool block (bug check 0xC2)",
             callSite);
}

void Pool::retire(std::uintptr_t address, const Block &block, const void *callSite) {
    std::memset(reinterpret_cast<void *>(address), freedPattern, block.size);
    if (keptBack == 0 || block.size > largestKeptBack) {
        std::free(reinterpret_cast<void *>(address));
        return;
    }
    FreedBlock oldest;
    {
        std::lock_guard lock(mutex_);
        freed_.push_back({address, block, callSite});
        if (freed_.size() <= keptBack) {
            return;
        }
        oldest = freed_.front();
        freed_.pop_front();
    }
    giveBack(oldest);
}

void Pool::giveBack(const FreedBlock &freed) const {
    if (!allEqual(reinterpret_cast<unsigned char *>(freed.address), freed.block.size, freedPattern)) {
        bugCheck("use after free", "pool",
                 "written after it was freed: " + describeBlock(freed.address, freed.block) + ", freed by " +
                     describeCodeAddress(freed.freedAt),
                 freed.freedAt);
    }
    std::free(reinterpret_cast<void *>(freed.address));
}

const Pool::FreedBlock *Pool::findFreed(std::uintptr_t address) const {
    const auto found = std::find_if(freed_.rbegin(), freed_.rend(), [address](const FreedBlock &freed) {
        return address >= freed.address && address - freed.address < freed.block.size;
    });
    return found == freed_.rend() ? nullptr : &*found;
}

std::optional<Pool::Block> Pool::blockAt(const void *address) const {
    const auto key = reinterpret_cast<std::uintptr_t>(address);
    std::lock_guard lock(mutex_);
    auto after = blocks_.upper_bound(key);
    if (after == blocks_.begin()) {
        return std::nullopt;
    }
    --after;
    return key - after->first < after->second.size ? std::optional(after->second) : std::nullopt;
}

void Pool::checkAccess(const void *address, std::size_t bytes, const char *routine, const void *callSite) const {
    const auto key = reinterpret_cast<std::uintptr_t>(address);
    std::string rule;
    std::string message;
    {
        std::lock_guard lock(mutex_);
        auto after = blocks_.upper_bound(key);
        const auto before = after == blocks_.begin() ? blocks_.end() : std::prev(after);
        if (before != blocks_.end() && key - before->first < before->second.size) {
            if (bytes > before->second.size - (key - before->first)) {
                rule = "pool overrun";
                message = std::to_string(bytes) + " bytes at " + hex(key) + " run over the end of ";
            } else if (before->second.paged && currentThread().irql >= DISPATCH_LEVEL) {
                rule = "irql";
                message = "at IRQL " + std::to_string(currentThread().irql) + " touched ";
            }
            if (!rule.empty()) { // this runs on every access: no text is made for nothing
                message += describeBlock(before->first, before->second);
            }
        } else if (const FreedBlock *freed = findFreed(key)) {
            rule = "use after free";
            message = hex(key) + " lies in freed " + describeBlock(freed->address, freed->block) + ", freed by " +
                      describeCodeAddress(freed->freedAt);
        }
    }
    if (!rule.empty()) {
        bugCheck(rule, routine, message, callSite);
    }
}

std::size_t Pool::bytesInUse() const {
    std::lock_guard lock(mutex_);
    return bytes_;
}

std::size_t Pool::blocksInUse() const {
    std::lock_guard lock(mutex_);
    return blocks_.size();
}

std::size_t Pool::peakBytes() const {
    std::lock_guard lock(mutex_);
    return peak_;
}

std::vector<std::string> Pool::leaks() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    for (const auto &[address, block] : blocks_) {
        lines.push_back(describeBlock(address, block));
    }
    return lines;
}

} // namespace sim
