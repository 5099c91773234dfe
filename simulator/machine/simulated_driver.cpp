#include "simulated_driver.h"

#include "../kernel/io.h"

#include <algorithm>

namespace sim::machine {

SimulatedDriver::SimulatedDriver(std::u16string_view serviceName) : object_(createDriverObject(serviceName)) {
    std::fill(std::begin(object_->MajorFunction), std::end(object_->MajorFunction), &SimulatedDevice::dispatch);
}

SimulatedDriver::~SimulatedDriver() {
    deleteDriverObject(object_);
}

} // namespace sim::machine
