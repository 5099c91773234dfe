#pragma once

#include "simulated_driver.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace sim::machine {

inline constexpr std::u16string_view driverService = u"TarvenholtMyrtelhavenDriver";
/// The disk class driver.
inline constexpr std::u16string_view diskService = u"disk";
/// The instance id of the root node, and the driver that makes the devices below it.
inline constexpr std::u16string_view rootInstance = u"HTREE\\ROOT\\0";
inline constexpr std::u16string_view rootBus = u"PnpManager";
inline constexpr std::u16string_view servicesKey = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services";
inline constexpr std::u16string_view classesKey = u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class";
inline constexpr std::u16string_view enumKey = u"\\Registry\\Machine\\System\\CurrentControlSet\\Enum";

/// What became of the wish to have a service's driver in memory.
struct LoadedService {
    PDRIVER_OBJECT object = nullptr;      ///< null: not loaded
    SimulatedDriver *simulated = nullptr; ///< null: the driver under test
    ULONG problemCode = 0;                ///< why not loaded
    NTSTATUS status = STATUS_SUCCESS;
};

/// The services of the registry and the drivers in memory. A service exists when its key does; its driver is loaded at
/// first need and, but for the driver under test, is one of the machine's own. Thread-safe.
class Services {
  public:
    /// `loadDriver` loads the driver under test and returns the status of that.
    explicit Services(std::function<NTSTATUS()> loadDriver, std::function<PDRIVER_OBJECT()> driverObject);

    /// Makes the service's key, if it is not there.
    void declare(std::u16string_view name);
    bool exists(std::u16string_view name) const;
    /// Finds or loads the driver of an existing service; names are compared without regard to case.
    LoadedService load(std::u16string_view name);
    /// The machine's own driver of that name, loaded without asking the registry.
    SimulatedDriver &simulated(std::u16string_view name);

    static std::u16string keyOf(std::u16string_view name);
    static bool isHubDriver(std::u16string_view name);
    static bool isDriverUnderTest(std::u16string_view name);

  private:
    const std::function<NTSTATUS()> loadDriver_;
    const std::function<PDRIVER_OBJECT()> driverObject_;
    std::mutex mutex_;
    std::map<std::u16string, std::unique_ptr<SimulatedDriver>> drivers_; ///< by upcased name
};

} // namespace sim::machine
