#pragma once

#include <ntifs.h>

/// Tags as pool tools show them, first letter first in memory.
inline constexpr ULONG generalPoolTag = 'n++C';    // "C++n": objects, log text, buffers
inline constexpr ULONG stringPoolTag = '++SU';     // "US++": KString buffers
inline constexpr ULONG tableEntryPoolTag = '++TG'; // "GT++": generic table entries

/// Owns one pool block with the tag "C++n"; frees it when it goes out of scope.
/// Allocate and destroy at DISPATCH_LEVEL or below (paged pool: APC_LEVEL).
class [[nodiscard]] PoolMemory {
  public:
    PoolMemory() = default;
    /// Zeroed memory, at least one byte; empty when the pool has none.
    PoolMemory(POOL_FLAGS flags, SIZE_T bytes)
        : block_(ExAllocatePool2(flags, bytes == 0 ? 1 : bytes, generalPoolTag)) {}
    ~PoolMemory() {
        if (block_ != nullptr) {
            ExFreePoolWithTag(block_, generalPoolTag);
        }
    }
    PoolMemory(PoolMemory &&other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    PoolMemory &operator=(PoolMemory &&other) noexcept {
        void *block = block_;
        block_ = other.block_;
        other.block_ = block; // freed with the other
        return *this;
    }
    PoolMemory(const PoolMemory &) = delete;
    PoolMemory &operator=(const PoolMemory &) = delete;

    explicit operator bool() const { return block_ != nullptr; }
    void *get() const { return block_; }
    template<typename T>
    T *as() const {
        return static_cast<T *>(block_);
    }

  private:
    void *block_ = nullptr;
};
