#pragma once

#include <ntifs.h>

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// Answers for the property routines of the I/O manager (IoGetDeviceProperty, IoGetDevicePropertyData,
/// IoGetDeviceInterfaces). The machine sets Kernel::deviceProperties; the routines themselves check the caller and do
/// the buffer arithmetic. Called at PASSIVE_LEVEL, possibly from several threads at once.
class DevicePropertyProvider {
  public:
    virtual ~DevicePropertyProvider() = default;

    /// The whole value with its terminators. STATUS_OBJECT_NAME_NOT_FOUND when the device has no such property,
    /// STATUS_INVALID_PARAMETER_2 for a property that does not exist for any device.
    virtual NTSTATUS registryProperty(PDEVICE_OBJECT physicalDevice, DEVICE_REGISTRY_PROPERTY property,
                                      std::vector<std::uint8_t> &out) = 0;
    /// The language-neutral value with its terminators and its type. STATUS_OBJECT_NAME_NOT_FOUND when absent.
    virtual NTSTATUS deviceProperty(PDEVICE_OBJECT physicalDevice, const DEVPROPKEY &key,
                                    std::vector<std::uint8_t> &out, DEVPROPTYPE &type) = 0;
    /// Symbolic links of the interfaces of one class: those of `physicalDevice`, or of every device when it is null.
    virtual std::vector<std::u16string> interfaces(PDEVICE_OBJECT physicalDevice, const GUID &interfaceClass,
                                                   bool enabledOnly) = 0;
    /// True for a physical device object that Plug and Play has enumerated and not forgotten.
    virtual bool isPhysicalDevice(PDEVICE_OBJECT device) = 0;
    /// True also for one that it has forgotten, the device being removed, while somebody's reference keeps it.
    virtual bool wasPhysicalDevice(PDEVICE_OBJECT device) { return isPhysicalDevice(device); }
};

} // namespace sim
