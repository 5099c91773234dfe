#pragma once

#include "simulator/machine/machine.h"
#include "simulator/machine/usb_device.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sim::machinetest {

/// A small driver linked into the test, loaded by a machine in the place of a module. It attaches a filter that passes
/// everything on; its behaviour is set through the public members before the machine needs it.
class TestDriver {
  public:
    /// The driver that a machine with these options loads. One at a time.
    TestDriver();
    ~TestDriver();
    TestDriver(const TestDriver &) = delete;
    TestDriver &operator=(const TestDriver &) = delete;

    MachineOptions options() const;

    NTSTATUS entryStatus = STATUS_SUCCESS;
    bool attaches = true;
    bool clearsInitializing = true;
    bool leavesStackOnRemove = true;
    NTSTATUS addStatus = STATUS_SUCCESS;
    PNP_DEVICE_STATE deviceState = 0;                       ///< bits it adds on the way up
    std::function<void(PDEVICE_OBJECT physical)> onAdd;     ///< runs in AddDevice, after the attach
    std::function<void(const std::string &)> onPlugAndPlay; ///< minor code name and instance, as in `events`

    /// "add NAME", "start NAME", "surprise NAME", "remove NAME", "relations NAME", "unload" …, in order.
    std::vector<std::string> events() const;
    void note(const std::string &event);
    void clear();

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

/// The name of the driver under test in device stacks.
inline const std::u16string ours = u"\\Driver\\TarvenholtMyrtelhavenDriver";

/// A device of a vendor's own class, which no hub knows a driver for.
inline DeviceDescription vendorDevice(std::string name = "vendor") {
    return usbVendorDevice(std::move(name), {0x1234, 0x5678});
}

/// Text property of a physical device object through IoGetDeviceProperty, without its terminators.
std::u16string property(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY which);

/// Sends a control request to the top of a device's stack, as the driver under test does.
struct ControlResult {
    NTSTATUS status;
    ULONG_PTR information;
};
ControlResult control(PDEVICE_OBJECT device, ULONG code, void *buffer, ULONG input, ULONG output);

} // namespace sim::machinetest
