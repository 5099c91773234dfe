#pragma once

#include <ntifs.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace races {

/// A handle that a user-mode process has open on the control device.
class ServiceHandle {
  public:
    /// Opens it. `status` tells how that went; nothing else may be done with a handle that was not opened.
    ServiceHandle(PDEVICE_OBJECT anyDeviceOfStack, unsigned processId);
    ~ServiceHandle(); ///< closes it; requests that wait in the driver are cancelled
    ServiceHandle(const ServiceHandle &) = delete;
    ServiceHandle &operator=(const ServiceHandle &) = delete;

    bool isOpen() const { return status_ == STATUS_SUCCESS; }
    NTSTATUS status() const { return status_; }
    FILE_OBJECT &file() { return file_; }
    unsigned processId() const { return processId_; }

  private:
    NTSTATUS send(UCHAR majorFunction);

    FILE_OBJECT file_{};
    const unsigned processId_;
    NTSTATUS status_;
};

/// A control request that a process sends through its handle. It may come back any time, in any thread. Must not end
/// before it is back.
class UserRequest {
  public:
    UserRequest(ServiceHandle &handle, std::uint32_t code, std::vector<std::uint8_t> input, std::size_t outputBytes);
    ~UserRequest();
    UserRequest(const UserRequest &) = delete;
    UserRequest &operator=(const UserRequest &) = delete;

    void cancel();
    bool isBack() const;
    void await();

    // Once it is back:
    NTSTATUS status() const { return irp_->IoStatus.Status; }
    std::size_t information() const { return irp_->IoStatus.Information; }
    const std::vector<std::uint8_t> &buffer() const { return buffer_; }

  private:
    static NTSTATUS cameBack(PDEVICE_OBJECT, PIRP, PVOID context);

    std::vector<std::uint8_t> buffer_;
    PIRP irp_ = nullptr;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool back_ = false;
};

} // namespace races
