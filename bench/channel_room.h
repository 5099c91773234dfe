#pragma once

#include "control/control_device.h"
#include "myrtelhaven_service.h"
#include "simulator/machine/machine.h"
#include "simulator/process/user_process.h"

namespace bench {

/// A machine with both hub drivers that has loaded the driver, linked in, and started its control device, which a
/// service process holds open. The log is off. One at a time.
class ChannelRoom {
  public:
    /// So many devices are there, below hubs of a hundred ports each, when the service comes, which therefore is told
    /// of none. The policy filters all of them and allows them.
    explicit ChannelRoom(std::uint32_t callbackMode = 0, unsigned devices = 0);
    ~ChannelRoom();
    ChannelRoom(const ChannelRoom &) = delete;
    ChannelRoom &operator=(const ChannelRoom &) = delete;

    const ControlDevice &control() const;
    /// A request of the service that waits until the driver has something for it.
    sim::UserProcess::Io parkForNotification();
    sim::UserProcess::Io parkForQuestion();
    void reply(std::uint64_t requestId, std::uint32_t answer);
    /// From now on there are so many rules, and only the last one allows the devices.
    void setRules(unsigned count);
    /// Throws unless every device is listed.
    void list();
    /// Throws unless the rescan succeeds.
    void rescan();

    sim::Machine machine;
    sim::UserProcess service{100};

  private:
    void plugDevices();

    const unsigned devices_;
    sim::UserProcess::Handle handle_ = 0;
};

/// The message about a device, as a filter of it keeps it.
ServiceMessage messageOfDevice(std::uint32_t mode);

} // namespace bench
