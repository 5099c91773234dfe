#pragma once

#include "../kernel/io.h"
#include "action_queue.h"
#include "device_tree.h"
#include "services.h"
#include "stack_plan.h"
#include "volume.h"

#include <atomic>

namespace sim::machine {

/// The Plug and Play manager: enumerates what is plugged, builds, starts and removes stacks. Different devices may be
/// plugged and unplugged from several threads at once.
class PlugAndPlay {
  public:
    PlugAndPlay(Services &services, HubStatuses hubStatuses);
    ~PlugAndPlay();

    DeviceTree &tree() { return tree_; }
    const MediumStore &media() const { return media_; }
    /// The volume that was mounted last on the disk of that name; null without one.
    std::shared_ptr<Volume> volume(const std::string &disk);
    /// Mounts the medium (again). Null when the disk does not run.
    std::shared_ptr<Volume> mount(Node &node);
    std::atomic<MachineObserver *> observer = nullptr;

    /// See Machine. These throw std::invalid_argument for a description that no machine could have and std::logic_error
    /// for a parent that cannot have children.
    Node &plug(DeviceDescription description, Node &parent);
    void unplug(Node &node);
    Node &replug(Node &node);
    /// Orderly removal (query, then remove) of every device with this driver in its stack, newest first.
    void removeDevicesOf(PDRIVER_OBJECT driver);

    /// Does what was put off: port cycles, device state questions, removals that waited for handles to be closed. False
    /// when some of it goes on, since it waits for a process of user mode or since this is a part of it.
    bool runPending();
    /// Something that the system does soon, in a thread of its own or, while the machine's workers run in order, before
    /// the next runPending is over.
    void runLater(std::function<void()> action) { post(std::move(action)); }
    /// The last reference to a file object has gone: removals that waited for that go on.
    void fileClosed();

  private:
    enum class Manner { surprise, orderly };
    enum class StackRemoval { afterFailure, orderly, surprise };

    /// Marks a call from outside; when the outermost one ends, what was put off meanwhile is done.
    class Operation {
      public:
        explicit Operation(PlugAndPlay &owner);
        ~Operation() noexcept(false);
        Operation(const Operation &) = delete;
        Operation &operator=(const Operation &) = delete;

      private:
        PlugAndPlay &owner_;
    };

    // enumeration.cpp
    Node *enumerate(const std::shared_ptr<Hardware> &hardware, Node &parent);
    /// Makes this thread the owner of the node where it is not already; empty then, and for a node that has gone.
    NodeClaim claimUnlessOwn(Node &node);
    void reportToPlugAndPlay(Node &node, Node &parent);
    void configure(Node &node);
    void enumerateChildren(Node &node);
    void withdraw(Node &node);
    void queryCapabilities(Node &node);
    std::u16string physicalDeviceName(std::u16string_view busDriver);
    std::u16string newDriverKey(const DeviceDescription &description);

    // stack_building.cpp
    bool buildStack(Node &node);
    bool loadMembers(Node &node, const std::vector<StackMember> &plan, std::vector<LoadedService> &loaded);
    NTSTATUS addMember(Node &node, const StackMember &member, const LoadedService &service);
    NTSTATUS addDriverUnderTest(Node &node, PDRIVER_OBJECT driver);
    void addSimulated(Node &node, const StackMember &member, SimulatedDriver &driver);
    void noteAttached(Node &node, PDEVICE_OBJECT before, const char *routine);
    void applySecurity(Node &node);

    // start.cpp
    bool start(Node &node);
    bool askState(Node &node);
    void setProblem(Node &node, ULONG code, NTSTATUS status);
    void setInterfaces(Node &node, bool enabled);
    void notifyChanged(Node &node);

    // removal.cpp
    Node *cycle(Node &node);
    void takeAway(Node &node, Manner manner);
    bool agreesToRemoval(Node &node);
    void takeChildrenAway(Node &node, Manner manner);
    bool removeStack(Node &node, StackRemoval how);
    void finishRemoval(Node &node);
    void finishPostponedRemovals();
    void leavePlugAndPlay(Node &node);
    bool takeFromPostponed(Node &node);
    bool postponeRemoval(Node &node);

    // later actions
    void stateInvalidated(PDEVICE_OBJECT device);
    void portCycled(PDEVICE_OBJECT device);
    void post(std::function<void()> action);

    Services &services_;
    const HubStatuses hubStatuses_;
    DeviceTree tree_;
    MediumStore media_;
    std::map<std::string, std::shared_ptr<Volume>> volumes_; ///< guarded by the tree's mutex
    std::atomic<unsigned> autoNames_ = 0x40;
    std::atomic<unsigned> usbNames_ = 0;
    std::atomic<unsigned> diskNumbers_ = 0;
    std::map<std::u16string, unsigned> driverKeys_; ///< last number by upcased class; guarded by the tree's mutex
    std::vector<Node *> postponed_;                 ///< guarded by the tree's mutex
    ActionQueue actions_;                           ///< last: its thread ends before anything else goes
};

/// Sends a PnP IRP to the top of a node's stack and checks that every driver came back as it was called.
PnpResult sendToStack(PDEVICE_OBJECT physicalDevice, UCHAR minor, const char *name,
                      const std::function<void(PIO_STACK_LOCATION)> &fill = {});

} // namespace sim::machine
