#pragma once

#include "object.h"

#include <map>
#include <optional>
#include <vector>

namespace sim::framework {

class Device;
class Driver;

/// A WDM preprocess callback of one major function. No minor functions: every minor function.
struct PreprocessCallback {
    PFN_WDFDEVICE_WDM_IRP_PREPROCESS routine = nullptr;
    std::vector<UCHAR> minorFunctions;
};

/// A power state change callback of one state.
struct PowerStateCallback {
    PFN_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION routine = nullptr;
    ULONG types = 0;
};

/// What WdfDeviceCreate will make the device from. WdfDeviceCreate hands it on to the device.
struct DeviceSettings {
    bool filter = false;
    std::optional<WDF_FILEOBJECT_CONFIG> fileObject;
    std::optional<WDF_OBJECT_ATTRIBUTES> fileObjectAttributes;
    std::optional<WDF_OBJECT_ATTRIBUTES> requestAttributes;
    std::map<UCHAR, PreprocessCallback> preprocess;
    std::map<ULONG, PowerStateCallback> powerStateCallbacks;
    WDF_PNPPOWER_EVENT_CALLBACKS pnpPower{};
};

/// Lives for one EvtDriverDeviceAdd. Drivers hold its address as PWDFDEVICE_INIT.
class DeviceInit {
  public:
    DeviceInit(Driver &driver, PDEVICE_OBJECT physicalDevice);
    ~DeviceInit();
    DeviceInit(const DeviceInit &) = delete;
    DeviceInit &operator=(const DeviceInit &) = delete;

    /// Null when the address is not that of a live one.
    static DeviceInit *find(PWDFDEVICE_INIT init);
    PWDFDEVICE_INIT pointer() { return reinterpret_cast<PWDFDEVICE_INIT>(this); }

    Driver &driver;
    const PDEVICE_OBJECT physicalDevice;
    DeviceSettings settings;
    Device *created = nullptr;
};

} // namespace sim::framework
