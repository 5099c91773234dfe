#pragma once

#include "framework.h"

#include <array>
#include <atomic>

namespace sim::framework {

/// Counts requests by their major function. Thread-safe.
class RequestCounter {
  public:
    void count(UCHAR majorFunction) { ++counts_[majorFunction & 0x1F]; }
    RequestCounts counts() const {
        return {counts_[IRP_MJ_READ], counts_[IRP_MJ_WRITE], counts_[IRP_MJ_DEVICE_CONTROL],
                counts_[IRP_MJ_INTERNAL_DEVICE_CONTROL]};
    }

  private:
    std::array<std::atomic<unsigned>, 0x20> counts_{};
};

} // namespace sim::framework
