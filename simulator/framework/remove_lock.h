#pragma once

#include <condition_variable>
#include <mutex>

namespace sim::framework {

/// Counts PnP, power and WMI IRPs under way in a device, so that removal can wait for them.
class RemoveLock {
  public:
    bool acquire(); ///< false once removal has begun to wait
    void release();
    void waitAndClose();

  private:
    std::mutex mutex_;
    std::condition_variable idle_;
    unsigned holders_ = 0;
    bool closed_ = false;
};

} // namespace sim::framework
