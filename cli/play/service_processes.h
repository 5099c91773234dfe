#pragma once

#include <ntifs.h>

#include <map>
#include <memory>
#include <vector>

namespace cli {

/// User-mode processes that hold the driver's control device open, by process id.
class ServiceProcesses {
  public:
    /// Opens the control device by its name. STATUS_OBJECT_NAME_NOT_FOUND when nothing has that name; otherwise what
    /// the driver answers.
    NTSTATUS open(unsigned processId);
    /// Closes the newest handle of a process; false when it has none.
    bool close(unsigned processId);
    void closeAll();
    bool anyOpen() const { return !handles_.empty(); }

  private:
    static NTSTATUS send(UCHAR majorFunction, unsigned processId, FILE_OBJECT &file);

    std::map<unsigned, std::vector<std::unique_ptr<FILE_OBJECT>>> handles_;
};

} // namespace cli
