#pragma once

#include <wdf.h>

#include <cstddef>
#include <span>

namespace sim::framework {

/// The library's function table as a 1.15 client sees it. Entries that are not simulated stop the run with their name;
/// an index past the end meets memory that can't be touched.
inline constexpr std::size_t functionCount = 444;

class FunctionTable {
  public:
    FunctionTable();
    FunctionTable(const FunctionTable &) = delete;
    FunctionTable &operator=(const FunctionTable &) = delete;
    WDFFUNC *entries() { return entries_.data(); }

    template<typename Routine>
    void set(std::size_t index, Routine *routine) {
        entries_[index] = reinterpret_cast<WDFFUNC>(routine);
    }

  private:
    const std::span<WDFFUNC, functionCount> entries_;
};

FunctionTable &functionTable();

// Each family of routines puts its own in place. PFN types in the definitions check the signatures.
void installObjectRoutines(FunctionTable &table);
void installDriverRoutines(FunctionTable &table);
void installDeviceInitRoutines(FunctionTable &table);
void installDeviceRoutines(FunctionTable &table);
void installDeviceStateRoutines(FunctionTable &table);
void installDispatchRoutines(FunctionTable &table);
void installRegistryKeyRoutines(FunctionTable &table);
void installRegistryQueryRoutines(FunctionTable &table);
void installRegistryAssignRoutines(FunctionTable &table);
void installCollectionRoutines(FunctionTable &table);
void installStringRoutines(FunctionTable &table);
void installMemoryRoutines(FunctionTable &table);
void installWaitLockRoutines(FunctionTable &table);
void installTargetRoutines(FunctionTable &table);
void installTargetFormatRoutines(FunctionTable &table);
void installTargetIoctlRoutines(FunctionTable &table);
void installQueueRoutines(FunctionTable &table);
void installQueueRetrievalRoutines(FunctionTable &table);
void installRequestRoutines(FunctionTable &table);
void installRequestBufferRoutines(FunctionTable &table);
void installRequestSendRoutines(FunctionTable &table);
void installRequestCompletionRoutines(FunctionTable &table);

} // namespace sim::framework
