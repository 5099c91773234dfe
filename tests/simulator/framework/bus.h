#pragma once

#include "simulator/kernel/device_properties.h"
#include "simulator/kernel/kernel.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sim::test {

/// A bus driver with physical devices that succeeds in everything, or answers what a test wants.
class Bus : public DevicePropertyProvider {
  public:
    explicit Bus(Kernel &kernel);
    ~Bus() override;

    PDEVICE_OBJECT plug(std::u16string name = u"\\Device\\00000042");
    /// Surprise removal (when wanted) and removal, then the physical device is deleted.
    void unplug(PDEVICE_OBJECT physical, bool surprise = false);
    void forget(PDEVICE_OBJECT physical) { devices_.erase(physical); } ///< the test deleted it itself
    NTSTATUS pnp(PDEVICE_OBJECT physical, UCHAR minor, ULONG_PTR *information = nullptr);
    NTSTATUS power(PDEVICE_OBJECT physical, POWER_STATE_TYPE type, int state);

    /// Called for every IRP that arrives; nothing: the usual answer. A pended IRP is the test's to complete.
    std::function<std::optional<NTSTATUS>(PIRP)> answer = [](PIRP) { return std::nullopt; };
    /// "create", "control 220404", "pnp 0" … in the order of arrival.
    std::vector<std::string> seen;
    bool recording = true; ///< off for tests with many threads
    std::map<DEVICE_REGISTRY_PROPERTY, std::vector<std::uint8_t>> properties;
    PDRIVER_OBJECT driver() const { return driver_; }

    NTSTATUS registryProperty(PDEVICE_OBJECT physical, DEVICE_REGISTRY_PROPERTY property,
                              std::vector<std::uint8_t> &out) override;
    NTSTATUS deviceProperty(PDEVICE_OBJECT, const DEVPROPKEY &, std::vector<std::uint8_t> &, DEVPROPTYPE &) override;
    std::vector<std::u16string> interfaces(PDEVICE_OBJECT, const GUID &, bool) override { return {}; }
    bool isPhysicalDevice(PDEVICE_OBJECT device) override { return devices_.contains(device); }

  private:
    static NTSTATUS dispatch(PDEVICE_OBJECT device, PIRP irp);
    NTSTATUS serve(PDEVICE_OBJECT device, PIRP irp);

    Kernel &kernel_;
    PDRIVER_OBJECT driver_;
    std::set<PDEVICE_OBJECT> devices_;
};

std::vector<std::uint8_t> textBytes(std::u16string_view text);

} // namespace sim::test
