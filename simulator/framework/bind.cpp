#include "../kernel/strings.h"
#include "../kernel/thread.h"
#include "../kernel/violation.h"
#include "client.h"
#include "driver.h"
#include "framework.h"
#include "table.h"

#include <wdf/bind.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace sim::framework {

namespace {

// The library simulated here is a 1.33 one, seen by a client of an older version.
constexpr ULONG libraryMajorVersion = 1;
constexpr ULONG newestMinorVersion = 33;
// Table sizes of the released versions (framework source: registration of a client).
constexpr ULONG releasedCounts[] = {383, 386, 387, 396, 432, 438, 444, 446, 448, 451, 453, 454, 458};
constexpr ULONG firstCountWithSharedTable = 444;

struct Clients {
    std::mutex mutex;
    std::vector<std::shared_ptr<Client>> list;
};

Clients &clients() {
    static Clients instance;
    return instance;
}

template<typename Predicate>
Client *findClient(Predicate predicate) {
    std::lock_guard lock(clients().mutex);
    const auto found = std::find_if(clients().list.begin(), clients().list.end(), predicate);
    return found == clients().list.end() ? nullptr : found->get();
}

NTSTATUS checkBindInfo(const WDF_BIND_INFO &info) {
    if (info.Size != sizeof(WDF_BIND_INFO) || !info.Component || !info.FuncTable) {
        return STATUS_INVALID_PARAMETER;
    }
    if (std::u16string_view(reinterpret_cast<const char16_t *>(info.Component)) != u"KmdfLibrary") {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    if (info.Version.Major != libraryMajorVersion || info.Version.Minor > newestMinorVersion) {
        return STATUS_REVISION_MISMATCH;
    }
    const bool released =
        std::find(std::begin(releasedCounts), std::end(releasedCounts), info.FuncCount) != std::end(releasedCounts);
    return released && info.FuncCount <= functionCount ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
}

void handOverTable(const WDF_BIND_INFO &info) {
    WDFFUNC *entries = functionTable().entries();
    if (info.FuncCount >= firstCountWithSharedTable) {
        *info.FuncTable = entries;
    } else {
        std::memcpy(static_cast<void *>(info.FuncTable), entries, info.FuncCount * sizeof(WDFFUNC));
    }
}

} // namespace

Client *clientFromGlobals(PWDF_DRIVER_GLOBALS globals) {
    return findClient([globals](const auto &client) { return &client->globals == globals; });
}

Client *clientOfDriver(PDRIVER_OBJECT driverObject) {
    return findClient([driverObject](const auto &client) { return client->driverObject == driverObject; });
}

bool anyClientBound() {
    return findClient([](const auto &) { return true; }) != nullptr;
}

} // namespace sim::framework

using namespace sim;
using namespace sim::framework;

// Framework source: loader interface and registration of a client. Which status a wrong component or version gets is
// recalled.
extern "C" NTSTATUS WdfVersionBind(PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath, PWDF_BIND_INFO bindInfo,
                                   PWDF_COMPONENT_GLOBALS *globals) {
    const void *callSite = SIM_CALL_SITE;
    requirePassive("WdfVersionBind", callSite);
    if (!driverObject || !registryPath || !bindInfo || !globals) {
        return STATUS_INVALID_PARAMETER;
    }
    if (kernel().faults.shouldFail("WdfVersionBind")) {
        return kernel().faults.statusFor("WdfVersionBind", STATUS_INSUFFICIENT_RESOURCES);
    }
    const NTSTATUS status = checkBindInfo(*bindInfo);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    forgetUnboundObjects();
    auto client = std::make_shared<Client>();
    client->driverObject = driverObject;
    const std::u16string path(view(*registryPath));
    const std::string name = toUtf8(std::u16string_view(path).substr(path.rfind(u'\\') + 1));
    name.copy(client->globals.DriverName, sizeof(client->globals.DriverName) - 1);
    handOverTable(*bindInfo);
    bindInfo->Module = functionTable().entries();
    *globals = &client->globals;
    std::lock_guard lock(clients().mutex);
    clients().list.push_back(std::move(client));
    return STATUS_SUCCESS;
}

// Framework source: a driver object that is still there (DriverEntry failed) is deleted now, without EvtDriverUnload.
extern "C" NTSTATUS WdfVersionUnbind(PUNICODE_STRING, PWDF_BIND_INFO bindInfo, PWDF_COMPONENT_GLOBALS globals) {
    const void *callSite = SIM_CALL_SITE;
    requirePassive("WdfVersionUnbind", callSite);
    Client *client = clientFromGlobals(globals);
    if (!client || !bindInfo) {
        bugCheck("framework globals", "WdfVersionUnbind", "the driver globals are not those of a bound driver",
                 callSite);
    }
    if (client->driver) {
        client->driver->remove();
        drainDeferredDeletions();
    }
    client->bound = false;
    bindInfo->Module = nullptr;
    std::lock_guard lock(clients().mutex);
    std::erase_if(clients().list, [client](const auto &entry) { return entry.get() == client; });
    return STATUS_SUCCESS;
}
