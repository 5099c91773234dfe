#pragma once

#include "bell.h"
#include "device_file.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim::process {

/// A control request as a program makes it (learn.microsoft.com: DeviceIoControl).
struct ControlRequest {
    std::uint32_t code = 0;
    std::vector<std::uint8_t> input;
    std::size_t outputBytes = 0;
    unsigned thread = 1; ///< number of the process's thread that makes it
};

/// A read or a write as a program makes it (learn.microsoft.com: ReadFile, WriteFile).
struct TransferRequest {
    bool isWrite = false;
    std::uint64_t offset = 0;
    std::vector<std::uint8_t> data; ///< of a write
    std::size_t length = 0;         ///< of a read
    unsigned thread = 1;
};

/// A request under way, or come back. Thread-safe. It may be dropped at any time; the request goes on.
class PendingIo : public std::enable_shared_from_this<PendingIo> {
  public:
    /// Makes the request in a thread of the process. Without a file it comes back at once with STATUS_INVALID_HANDLE;
    /// without the rights that the code asks for with STATUS_ACCESS_DENIED, and the driver never sees it.
    /// Rings the bell once it is back.
    static std::shared_ptr<PendingIo> send(std::shared_ptr<DeviceFile> file, ControlRequest request, PETHREAD thread,
                                           std::shared_ptr<Bell> bell);
    /// The same for a read or a write, which needs the right to read or write data.
    static std::shared_ptr<PendingIo> send(std::shared_ptr<DeviceFile> file, TransferRequest request, PETHREAD thread,
                                           std::shared_ptr<Bell> bell);

    PendingIo(std::shared_ptr<DeviceFile> file, ControlRequest request, std::shared_ptr<Bell> bell);
    PendingIo(std::shared_ptr<DeviceFile> file, TransferRequest request, std::shared_ptr<Bell> bell);
    PendingIo(const PendingIo &) = delete;
    PendingIo &operator=(const PendingIo &) = delete;

    unsigned thread() const { return transfer_ ? transfer_->thread : request_.thread; }
    const DeviceFile *file() const { return file_.get(); }
    /// What was asked. Empty for a read or a write.
    const ControlRequest &request() const { return request_; }
    bool isBack() const;
    /// Waits until it is back; stops the run when that takes more than two minutes of the host's time.
    void await();
    /// learn.microsoft.com: CancelIoEx. False when it was back before.
    bool cancel();

    // Once it is back:
    NTSTATUS status() const { return status_; }
    std::size_t information() const { return information_; }
    /// The caller's buffer: 0xCC where nothing was copied to.
    const std::vector<std::uint8_t> &output() const { return output_; }
    /// The bytes that were copied to it.
    std::vector<std::uint8_t> received() const;

  private:
    static NTSTATUS cameBack(PDEVICE_OBJECT, PIRP, PVOID context);
    void refuse(NTSTATUS status);
    void begin(PETHREAD thread, bool allowed);
    void start(PETHREAD thread);
    void describeMemory();
    void describeControl(PIO_STACK_LOCATION location);
    void describeTransfer(PDEVICE_OBJECT top, PIO_STACK_LOCATION location);
    std::string name() const;
    void userLeaves();
    void finish();
    struct Mistake {
        const char *rule;
        std::string message;
    };
    std::optional<Mistake> copyAnswer();
    std::optional<Mistake> countTransferred();
    void showBack();

    const ControlRequest request_;
    std::optional<TransferRequest> transfer_;
    MDL memory_{};                           ///< describes the caller's buffer for direct I/O
    const std::shared_ptr<DeviceFile> file_; ///< null for a request without a valid handle
    const std::shared_ptr<Bell> bell_;
    std::shared_ptr<PendingIo> self_; ///< while the driver has it
    PIRP irp_ = nullptr;
    std::atomic<int> irpUsers_ = 0; ///< the I/O itself and threads that cancel it; the last one frees the IRP

    std::vector<std::uint8_t> output_;
    NTSTATUS status_ = STATUS_PENDING;
    std::size_t information_ = 0;
    std::size_t copied_ = 0;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool back_ = false;
};

} // namespace sim::process
