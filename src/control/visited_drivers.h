#pragma once

#include <ntifs.h>

/// Drivers whose devices a rescan has walked already, so that it enters none twice. PASSIVE_LEVEL, one thread.
class [[nodiscard]] VisitedDrivers {
  public:
    VisitedDrivers();
    ~VisitedDrivers();
    VisitedDrivers(const VisitedDrivers &) = delete;
    VisitedDrivers &operator=(const VisitedDrivers &) = delete;

    bool contains(PDRIVER_OBJECT driver);
    /// STATUS_INSUFFICIENT_RESOURCES when there is no memory for it.
    NTSTATUS insert(PDRIVER_OBJECT driver);

  private:
    RTL_AVL_TABLE table_;
};
