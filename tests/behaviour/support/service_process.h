#pragma once

#include <ntifs.h>

#include <memory>
#include <vector>

namespace behaviour {

/// A user-mode process that opens the control device.
class ServiceProcess {
  public:
    explicit ServiceProcess(unsigned processId) : processId_(processId) {}

    /// Opens the device stack; on success the process has one handle more.
    NTSTATUS open(PDEVICE_OBJECT anyDeviceOfStack);
    /// Closes its latest handle.
    void close();

  private:
    NTSTATUS send(UCHAR majorFunction, FILE_OBJECT &file);

    const unsigned processId_;
    std::vector<std::unique_ptr<FILE_OBJECT>> handles_;
};

} // namespace behaviour
