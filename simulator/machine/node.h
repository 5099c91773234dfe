#pragma once

#include "device_node_record.h"
#include "hardware.h"
#include "machine.h"
#include "physical_device.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace sim::machine {

class ChildList;

/// Codes that Device Manager shows (learn.microsoft.com: "Device Manager error messages").
namespace problem {
inline constexpr ULONG failedStart = 10;
inline constexpr ULONG registry = 19;
inline constexpr ULONG deviceNotThere = 24;
inline constexpr ULONG failedInstall = 28;
inline constexpr ULONG hardwareDisabled = 29;
inline constexpr ULONG failedAdd = 31;
inline constexpr ULONG disabledService = 32;
inline constexpr ULONG driverFailedLoad = 39;
inline constexpr ULONG failedPostStart = 43;
} // namespace problem

/// A device interface that a driver registered for a device.
struct DeviceInterface {
    GUID interfaceClass;
    bool enabled = false;
};

/// One object of a stack as it was built.
struct StackEntry {
    PDEVICE_OBJECT device = nullptr;
    std::u16string driver; ///< "\Driver\NAME"
};

/// A device node. What changes after construction is guarded by the tree's mutex; nodes that have left the tree live
/// until the machine ends and answer as removed.
class Node final : public DeviceNode {
  public:
    Node(std::mutex &treeMutex, std::shared_ptr<Hardware> hardware, PDEVICE_OBJECT physicalDevice);

    const DeviceDescription &description() const override { return hardware_->description; }
    DeviceNode *parent() const override;
    std::vector<DeviceNode *> children() const override;
    PDEVICE_OBJECT physicalDevice() const override;
    bool started() const override;
    ULONG problemCode() const override;
    NTSTATUS problemStatus() const override;
    bool hidden() const override;
    bool everStarted() const override;
    std::vector<std::u16string> stack() const override;
    bool hasMedium() const override { return hardware_->medium != nullptr; }
    std::string security() const override;

    const std::shared_ptr<Hardware> &hardware() const { return hardware_; }
    bool isGone() const;

    /// State under the tree's mutex.
    struct State {
        Node *parent = nullptr;
        std::vector<std::shared_ptr<Node>> children;
        PDEVICE_OBJECT device = nullptr; ///< referenced; null once the node has left the tree
        bool started = false;
        bool everStarted = false;
        bool hidden = false;
        ULONG problemCode = 0;
        NTSTATUS problemStatus = STATUS_SUCCESS;
        std::vector<StackEntry> stack; ///< physical device first
        std::vector<DeviceInterface> interfaces;
        ChildList *childList = nullptr; ///< where its function driver reports devices; null without one
        std::u16string driverKey;       ///< "{class}\0001", empty before installation
        std::uint32_t capabilityAddress = noAddress;
        std::thread::id owner;     ///< thread that works on the node; nobody by default
        std::size_t claimants = 0; ///< threads that wait to own it
        std::size_t releases = 0;  ///< how often an owner was done with it
        bool departing = false;    ///< it or its stack is going away: nothing new may come below it
        bool gone = false;         ///< it has left the tree

        bool acceptsChildren() const { return started && !departing && !gone; }
    } state;

    // Set once before the node is in the tree.
    PhysicalDevice *bus = nullptr; ///< null for the root
    ChildList *busList = nullptr;  ///< list of the bus that reports the device, when one does
    DeviceNodeRecord record;

  private:
    std::mutex &mutex_;
    const std::shared_ptr<Hardware> hardware_;
    std::u16string instancePath_;
    std::u16string serviceName_;
};

} // namespace sim::machine
