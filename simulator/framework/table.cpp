#include "table.h"

#include "../kernel/violation.h"

#include <string>
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
void fillWithTraps(std::array<WDFFUNC, functionCount> &entries, std::index_sequence<indexes...>) {
    entries = {reinterpret_cast<WDFFUNC>(&trap<indexes>)...};
}

} // namespace

FunctionTable::FunctionTable() {
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

} // namespace sim::framework
