#pragma once

#include "pending_io.h"

#include <map>
#include <string_view>

namespace sim {

/// A user-mode process: it opens devices by their names, makes control requests, and dies. It runs as the system
/// account does: every device lets it in, and a handle has exactly the rights that were asked for. Thread-safe; its
/// "threads" are numbers that requests are made by, so that the end of a thread can be played. A call works in the
/// calling host thread. Must end before the machine does.
class UserProcess {
  public:
    using Handle = unsigned;
    using Io = std::shared_ptr<process::PendingIo>;

    explicit UserProcess(unsigned id);
    ~UserProcess(); ///< dies, if it hasn't
    UserProcess(const UserProcess &) = delete;
    UserProcess &operator=(const UserProcess &) = delete;

    unsigned id() const { return id_; }

    /// Opens "\\.\NAME", "\DosDevices\NAME" or "\Device\NAME". STATUS_OBJECT_NAME_NOT_FOUND when nothing has that name;
    /// otherwise what the driver answers. `handle` is set on success.
    NTSTATUS open(std::u16string_view name, Handle &handle, ACCESS_MASK access = GENERIC_READ | GENERIC_WRITE);
    /// Opens a device object, whatever it is called: a disk by the physical device object of its node.
    NTSTATUS open(PDEVICE_OBJECT device, Handle &handle, ACCESS_MASK access = GENERIC_READ | GENERIC_WRITE);
    /// False when the handle is not open. Requests that wait in the driver's queues are cancelled by the driver.
    bool close(Handle handle);
    std::vector<Handle> handles() const; ///< open ones, oldest first

    /// Starts a request (overlapped I/O). It may be back already.
    Io begin(Handle handle, process::ControlRequest request);
    Io begin(Handle handle, process::TransferRequest request);
    /// The same, and waits.
    Io control(Handle handle, process::ControlRequest request);
    Io read(Handle handle, std::uint64_t offset, std::size_t length);
    Io write(Handle handle, std::uint64_t offset, std::vector<std::uint8_t> data);

    /// Rings whenever one of its requests comes back.
    process::Bell &bell() { return *bell_; }
    /// Requests under way.
    std::size_t pending() const;
    /// learn.microsoft.com: CancelIoEx without an OVERLAPPED: every request made through the handle.
    void cancelAll(Handle handle);
    /// A thread ends: the system cancels what it asked for.
    void endThread(unsigned thread);
    /// The process ends: its threads' requests are cancelled, its handles closed. What a driver keeps all the same
    /// holds its file object back, and with it the close that the driver sees.
    void die();

  private:
    template<typename Predicate>
    void cancelWhere(Predicate predicate);
    PETHREAD threadRecord(unsigned thread);
    template<typename Request>
    Io make(Handle handle, Request request);

    const unsigned id_;
    const std::shared_ptr<process::Bell> bell_ = std::make_shared<process::Bell>();
    mutable std::mutex mutex_;
    Handle nextHandle_ = 4;
    std::map<Handle, std::shared_ptr<process::DeviceFile>> files_;
    std::map<unsigned, PETHREAD> threads_;
    std::vector<Io> requests_;    ///< those that were under way at the last look, and since
    std::size_t lookAgainAt_ = 0; ///< when it has doubled, so that many requests under way cost each new one nothing
};

} // namespace sim
