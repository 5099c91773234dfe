#pragma once

#include "simulator/machine/machine.h"
#include "simulator/process/user_process.h"

namespace bench {

/// A machine with a flash drive, whose disk a program has open. Either the driver, linked in, makes the disk read-only,
/// or it is not there: the same stack without its filter. The log is off. One at a time.
class DiskRoom {
  public:
    explicit DiskRoom(bool filtered);
    ~DiskRoom();
    DiskRoom(const DiskRoom &) = delete;
    DiskRoom &operator=(const DiskRoom &) = delete;

    // Requests of the program. They throw unless they come back as they should: the filter refuses writes.
    void read();    ///< 4 KiB
    void write();   ///< the same
    void control(); ///< the geometry, which the class driver knows

  private:
    void plugStick();
    void checkReadsPassBy();

    const bool filtered_;
    sim::Machine machine_;
    sim::UserProcess program_{300};
    sim::UserProcess::Handle handle_ = 0;
};

} // namespace bench
