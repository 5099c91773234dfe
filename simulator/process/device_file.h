#pragma once

#include "../kernel/object.h"

#include <ntifs.h>

#include <memory>
#include <mutex>
#include <string_view>

namespace sim::process {

/// The calling thread is one of that process meanwhile.
class InProcess {
  public:
    explicit InProcess(unsigned processId);
    ~InProcess();
    InProcess(const InProcess &) = delete;
    InProcess &operator=(const InProcess &) = delete;

  private:
    const unsigned before_;
};

/// An IRP from user mode to the top of the stack that a file is open on, belonging to the thread `thread`.
PIRP allocateUserIrp(PDEVICE_OBJECT top, UCHAR majorFunction, FILE_OBJECT &file, PETHREAD thread);

/// A file object that a process opened on a device. The driver sees IRP_MJ_CLEANUP when its handle is closed, and
/// IRP_MJ_CLOSE once every request made through it has come back too. While it lives the device counts it as open.
class DeviceFile : public std::enable_shared_from_this<DeviceFile> {
  public:
    DeviceFile(PDEVICE_OBJECT device, ACCESS_MASK access, unsigned processId, PETHREAD thread);
    DeviceFile(const DeviceFile &) = delete;
    DeviceFile &operator=(const DeviceFile &) = delete;

    /// IRP_MJ_CREATE. Unless it succeeds the driver hears no more of the file.
    NTSTATUS open();
    /// Whether its handle was opened with the rights that a control code asks for.
    /// learn.microsoft.com: "Defining I/O Control Codes", RequiredAccess.
    bool allows(ULONG controlCode) const;
    /// Whether it may read or write data.
    bool allowsTransfer(bool isWrite) const { return isWrite ? object_.WriteAccess : object_.ReadAccess; }
    /// Closes the handle, in a thread of the process.
    void closeHandle();

    /// A request is about to be made through the file. False once its handle is closed.
    bool requestStarts();
    void requestEnds();

    PDEVICE_OBJECT device() const { return object_.DeviceObject; }
    FILE_OBJECT &object() { return object_; }
    unsigned processId() const { return processId_; }

  private:
    NTSTATUS send(UCHAR majorFunction);
    void lastReferenceGone();

    FILE_OBJECT object_{};
    const ACCESS_MASK access_;
    const unsigned processId_;
    const PETHREAD thread_;
    std::mutex mutex_;
    unsigned references_ = 0; ///< the handle and the requests under way
    bool handleOpen_ = false;
};

/// The object behind a name that a program opens, such as "\\.\NAME" or "\DosDevices\NAME".
NamedObject objectToOpen(std::u16string_view name);

} // namespace sim::process
