#pragma once

#include "device_tree.h"

#include "../kernel/device_properties.h"

namespace sim::machine {

/// What devices say about themselves, from their descriptions and the tree.
class PropertyProvider final : public DevicePropertyProvider {
  public:
    explicit PropertyProvider(DeviceTree &tree) : tree_(tree) {}

    NTSTATUS registryProperty(PDEVICE_OBJECT physicalDevice, DEVICE_REGISTRY_PROPERTY property,
                              std::vector<std::uint8_t> &out) override;
    NTSTATUS deviceProperty(PDEVICE_OBJECT physicalDevice, const DEVPROPKEY &key, std::vector<std::uint8_t> &out,
                            DEVPROPTYPE &type) override;
    std::vector<std::u16string> interfaces(PDEVICE_OBJECT physicalDevice, const GUID &interfaceClass,
                                           bool enabledOnly) override;
    bool isPhysicalDevice(PDEVICE_OBJECT device) override;
    bool wasPhysicalDevice(PDEVICE_OBJECT device) override;

  private:
    DeviceTree &tree_;
};

} // namespace sim::machine
