#pragma once

#include <ntifs.h>

/// Owns a kernel handle; closes it at PASSIVE_LEVEL when it goes out of scope.
class [[nodiscard]] KernelHandle {
  public:
    KernelHandle() = default;
    ~KernelHandle() {
        if (handle_ != nullptr) {
            ZwClose(handle_);
        }
    }
    KernelHandle(const KernelHandle &) = delete;
    KernelHandle &operator=(const KernelHandle &) = delete;

    HANDLE get() const { return handle_; }
    /// Where a routine stores the handle it opens; the guard must be empty.
    PHANDLE receive() { return &handle_; }
    /// Gives the handle up to the caller.
    HANDLE detach() {
        HANDLE handle = handle_;
        handle_ = nullptr;
        return handle;
    }

  private:
    HANDLE handle_ = nullptr;
};
