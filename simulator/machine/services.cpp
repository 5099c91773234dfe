#include "services.h"

#include "../kernel/kernel.h"
#include "../kernel/strings.h"
#include "node.h"

namespace sim::machine {

namespace {

constexpr std::uint32_t startDisabled = 4;

/// The spelling of the service key, which names the driver object.
std::u16string storedSpelling(std::u16string_view name) {
    for (const std::u16string &key : kernel().registry.subkeys(servicesKey)) {
        if (equalNoCase(key, name)) {
            return key;
        }
    }
    return std::u16string(name);
}

} // namespace

Services::Services(std::function<NTSTATUS()> loadDriver, std::function<PDRIVER_OBJECT()> driverObject)
    : loadDriver_(std::move(loadDriver)), driverObject_(std::move(driverObject)) {}

std::u16string Services::keyOf(std::u16string_view name) {
    return std::u16string(servicesKey) + u"\\" + std::u16string(name);
}

bool Services::isHubDriver(std::u16string_view name) {
    return equalNoCase(name, u"USBHUB3") || equalNoCase(name, u"USBHUB");
}

bool Services::isDriverUnderTest(std::u16string_view name) {
    return equalNoCase(name, driverService);
}

void Services::declare(std::u16string_view name) {
    const std::lock_guard guard(mutex_);
    if (exists(name)) {
        return;
    }
    Registry &registry = kernel().registry;
    const std::u16string key = keyOf(name);
    registry.makeKey(key);
    registry.setDword(key, u"Type", 1);
    registry.setDword(key, u"Start", 3);
    registry.setDword(key, u"ErrorControl", 1);
    registry.setString(key, u"ImagePath", u"\\SystemRoot\\System32\\drivers\\" + std::u16string(name) + u".sys");
}

bool Services::exists(std::u16string_view name) const {
    return kernel().registry.keyExists(keyOf(name));
}

// learn.microsoft.com: CM_PROB_REGISTRY (missing service), CM_PROB_DISABLED_SERVICE, CM_PROB_DRIVER_FAILED_LOAD.
LoadedService Services::load(std::u16string_view name) {
    if (!exists(name)) {
        return {nullptr, nullptr, problem::registry, STATUS_OBJECT_NAME_NOT_FOUND};
    }
    if (kernel().registry.dword(keyOf(name), u"Start") == startDisabled) {
        return {nullptr, nullptr, problem::disabledService, STATUS_UNSUCCESSFUL};
    }
    if (!isDriverUnderTest(name)) {
        SimulatedDriver &driver = simulated(storedSpelling(name));
        return {driver.object(), &driver, 0, STATUS_SUCCESS};
    }
    if (const NTSTATUS status = loadDriver_(); !NT_SUCCESS(status)) {
        return {nullptr, nullptr, problem::driverFailedLoad, status};
    }
    return {driverObject_(), nullptr, 0, STATUS_SUCCESS};
}

SimulatedDriver &Services::simulated(std::u16string_view name) {
    const std::lock_guard guard(mutex_);
    std::unique_ptr<SimulatedDriver> &driver = drivers_[upcase(std::u16string_view(name))];
    if (driver == nullptr) {
        driver = std::make_unique<SimulatedDriver>(name);
    }
    return *driver;
}

} // namespace sim::machine
