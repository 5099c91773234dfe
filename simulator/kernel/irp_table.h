#pragma once

#include <ntifs.h>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#ifndef STATUS_MORE_PROCESSING_REQUIRED
#define STATUS_MORE_PROCESSING_REQUIRED ((NTSTATUS)0xC0000016L)
#endif

namespace sim {

struct KernelThread;

/// One call of a dispatch routine, to compare what it returned with what it did to its stack location.
struct DispatchCall {
    PDRIVER_OBJECT driver = nullptr;
    std::optional<NTSTATUS> returned;
    std::optional<bool> markedPending; ///< known once the location was completed
};

/// One IRP from its allocation until it is freed.
struct IrpState {
    const void *allocatedAt = nullptr;
    bool sent = false;
    bool completed = false; ///< went all the way up; only its creator may still touch it
    std::map<int, std::vector<std::shared_ptr<DispatchCall>>> calls; ///< by stack location

    /// Of a request that its thread waits for (IoBuildDeviceIoControlRequest); null for any other.
    KernelThread *thread = nullptr;
    PVOID output = nullptr; ///< where a buffered request's answer goes
    ULONG outputBytes = 0;
    ULONG bufferBytes = 0; ///< size of the system buffer
};

/// Every live IRP by address.
class IrpTable {
  public:
    IrpTable() = default;
    ~IrpTable(); ///< gives back what is left
    IrpTable(const IrpTable &) = delete;
    IrpTable &operator=(const IrpTable &) = delete;

    std::mutex mutex;
    std::unordered_map<PIRP, IrpState> irps;
    std::deque<PIRP> freed; ///< kept back for a while so that a late completion finds no new IRP at its address
    std::mutex cancelLock;
};

std::string describeIrp(PIRP irp);

/// True when the IRP has come back all the way, or was never sent: its creator may free it.
bool withCreator(PIRP irp);

/// Completion of such a request runs as a special kernel APC of the thread that built it: bugCheck when that thread, at
/// APC_LEVEL, is about to wait for the event of a request of its own.
void requireCompletionApcPossible(PKEVENT event, const char *routine, const void *callSite);

} // namespace sim
