#include "table.h"

#include "../kernel/violation.h"
#include "function_table.h"

#include <algorithm>
#include <array>
#include <new>
#include <string>
#include <sys/mman.h>
#include <utility>

namespace sim::framework {

namespace {

/// Stands in for every routine that is not simulated.
template<std::size_t index>
void trap() {
    const std::string name = "function table entry " + std::to_string(index);
    notSimulated(name.c_str(), "this framework routine is not simulated", SIM_CALL_SITE);
}

template<std::size_t... indexes>
void fillWithTraps(std::span<WDFFUNC, functionCount> entries, std::index_sequence<indexes...>) {
    const std::array<WDFFUNC, functionCount> traps{reinterpret_cast<WDFFUNC>(&trap<indexes>)...};
    std::copy(traps.begin(), traps.end(), entries.begin());
}

constexpr std::size_t page = 0x1000;
constexpr std::size_t bytes = functionCount * sizeof(WDFFUNC);
constexpr std::size_t wholePages = (bytes + page - 1) / page * page;
constexpr std::size_t untouchable = 16 * page; ///< far more than any later version's table is longer

/// Room for the table that ends where memory that can't be touched begins. It is never given back.
std::span<WDFFUNC, functionCount> guardedRoom() {
    void *place = mmap(nullptr, wholePages + untouchable, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED || mprotect(place, wholePages, PROT_READ | PROT_WRITE) != 0) {
        throw std::bad_alloc();
    }
    auto *first = reinterpret_cast<WDFFUNC *>(static_cast<char *>(place) + wholePages - bytes);
    return std::span<WDFFUNC, functionCount>(first, functionCount);
}

} // namespace

FunctionTable::FunctionTable() : entries_(guardedRoom()) {
    fillWithTraps(entries_, std::make_index_sequence<functionCount>());
    installObjectRoutines(*this);
    installDriverRoutines(*this);
    installDeviceInitRoutines(*this);
    installDeviceRoutines(*this);
    installDeviceStateRoutines(*this);
    installDispatchRoutines(*this);
    installRegistryKeyRoutines(*this);
    installRegistryQueryRoutines(*this);
    installRegistryAssignRoutines(*this);
    installCollectionRoutines(*this);
    installStringRoutines(*this);
    installMemoryRoutines(*this);
    installWaitLockRoutines(*this);
    installTargetRoutines(*this);
    installTargetFormatRoutines(*this);
    installTargetIoctlRoutines(*this);
    installQueueRoutines(*this);
    installQueueRetrievalRoutines(*this);
    installRequestRoutines(*this);
    installRequestBufferRoutines(*this);
    installRequestSendRoutines(*this);
    installRequestCompletionRoutines(*this);
}

FunctionTable &functionTable() {
    static FunctionTable table;
    return table;
}

std::size_t functionTableEntries() {
    return functionCount;
}

std::optional<std::size_t> entryBehindFunctionTable(const void *address) {
    const auto offset = static_cast<std::size_t>(static_cast<const char *>(address) -
                                                 reinterpret_cast<const char *>(functionTable().entries()));
    const bool isBehind = offset >= bytes && offset < bytes + untouchable;
    return isBehind ? std::optional(offset / sizeof(WDFFUNC)) : std::nullopt;
}

} // namespace sim::framework
