#pragma once

#include "function_device.h"
#include "hub_device.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim::machine {

/// One of the machine's own drivers: its driver object and everything it made. Thread-safe.
class SimulatedDriver {
  public:
    explicit SimulatedDriver(std::u16string_view serviceName);
    ~SimulatedDriver();
    SimulatedDriver(const SimulatedDriver &) = delete;
    SimulatedDriver &operator=(const SimulatedDriver &) = delete;

    PDRIVER_OBJECT object() const { return object_; }

    /// Makes a device object of this driver and keeps it to the end of the machine.
    template<typename Device, typename... Arguments>
    Device &make(Arguments &&...arguments) {
        auto device = std::make_unique<Device>(object_, std::forward<Arguments>(arguments)...);
        Device &result = *device;
        result.madeWhole();
        const std::lock_guard guard(mutex_);
        devices_.push_back(std::move(device));
        return result;
    }

  private:
    PDRIVER_OBJECT object_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<SimulatedDevice>> devices_;
};

} // namespace sim::machine
