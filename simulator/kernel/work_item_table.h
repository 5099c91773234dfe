#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// One work item of a driver, from its allocation until it is freed.
struct WorkItemState {
    void *object = nullptr; ///< the device or driver object it was allocated for
    const void *allocatedAt = nullptr;
    const void *queuedAt = nullptr;
    bool queued = false;
};

/// Every live work item by address.
class WorkItemTable {
  public:
    WorkItemTable() = default;
    ~WorkItemTable(); ///< gives back what is left
    WorkItemTable(const WorkItemTable &) = delete;
    WorkItemTable &operator=(const WorkItemTable &) = delete;

    std::mutex mutex;
    std::map<const void *, WorkItemState> items;

    std::vector<std::string> leaks();
};

} // namespace sim
