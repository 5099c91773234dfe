#pragma once

#include "client.h"
#include "object.h"

#include <optional>
#include <string>

namespace sim::framework {

/// The framework's side of a driver object: the parent of everything that has no other parent.
class Driver : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::driver;

    Driver(Client &client, PDRIVER_OBJECT driverObject, std::u16string registryPath, const WDF_DRIVER_CONFIG &config,
           const void *callSite);
    ~Driver() override;

    const char *deletionRefusal() const override { return "a driver object cannot be deleted by its driver"; }

    const PDRIVER_OBJECT driverObject;
    const std::u16string registryPath;
    const WDF_DRIVER_CONFIG config;
    WDF_EXECUTION_LEVEL executionLevel = WdfExecutionLevelDispatch;
    WDF_SYNCHRONIZATION_SCOPE synchronizationScope = WdfSynchronizationScopeNone;
    std::atomic<unsigned> devices{0}; ///< framework devices not yet removed

  protected:
    void beforeCleanup() override { drainDeferredDeletions(); }
};

/// The framework's AddDevice and DriverUnload routines.
NTSTATUS addDevice(PDRIVER_OBJECT driverObject, PDEVICE_OBJECT physicalDevice);
VOID unloadDriver(PDRIVER_OBJECT driverObject);

} // namespace sim::framework
