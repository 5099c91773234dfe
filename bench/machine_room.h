#pragma once

#include "log/logger.h"
#include "policy/rule_storage.h"
#include "simulator/kernel/kernel.h"

#include <wdf.h>
#include <wdf/bind.h>

#include <memory>
#include <string>

namespace bench {

/// A kernel with the driver's log open and the driver bound to the framework, but without devices: what rules and log
/// lines need. One at a time.
class MachineRoom {
  public:
    MachineRoom();
    ~MachineRoom();
    MachineRoom(const MachineRoom &) = delete;
    MachineRoom &operator=(const MachineRoom &) = delete;

    sim::Kernel kernel{{}, false};

  private:
    std::u16string path_;
    UNICODE_STRING registryPath_{};
    WDF_BIND_INFO bindInfo_{};
    PDRIVER_OBJECT driver_ = nullptr;
    Logger log_{};
};

/// Rules in the registry and a storage that has read them. The log is off.
class RuleRoom : public MachineRoom {
  public:
    /// `count` allowed models with one serial number each, none of which is the device's.
    explicit RuleRoom(unsigned count);
    ~RuleRoom();

    void reload();
    /// The two questions about a device that no rule names: every rule is looked at.
    bool match();

  private:
    RuleStorage storage_;
};

} // namespace bench
