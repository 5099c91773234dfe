#pragma once

#include "../kernel/kernel.h"
#include "device_description.h"
#include "driver_image.h"
#include "medium.h"
#include "volume.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// One device in the tree, from its enumeration until Plug and Play forgets it. A removed node stays valid until the
/// machine ends: not started, no physical device object, no parent.
class DeviceNode {
  public:
    virtual ~DeviceNode() = default;
    virtual const DeviceDescription &description() const = 0;
    virtual DeviceNode *parent() const = 0;
    virtual std::vector<DeviceNode *> children() const = 0;
    virtual PDEVICE_OBJECT physicalDevice() const = 0;

    virtual bool started() const = 0;
    virtual ULONG problemCode() const = 0;      ///< 0 none, 19 bad filter list, 29 disabled, 31 failed add, 43 failed …
    virtual NTSTATUS problemStatus() const = 0; ///< status behind code 19 or 31
    virtual bool hidden() const = 0;            ///< kept out of Device Manager's normal view
    virtual bool everStarted() const = 0;       ///< it ran, if only until it was disabled
    /// Drivers of the stack, bottom first, e.g. {"\Driver\USBHUB3", "\Driver\TarvenholtMyrtelhavenDriver",
    /// "\Driver\USBSTOR"}.
    virtual std::vector<std::u16string> stack() const = 0;
    virtual bool hasMedium() const = 0;       ///< it is a disk, or a drive for media
    virtual std::string security() const = 0; ///< SDDL of the physical device object now
};

/// One call of the driver's AddDevice routine.
struct AddReport {
    DeviceNode *node = nullptr;
    NTSTATUS returned = 0;                  ///< what Plug and Play got
    std::optional<NTSTATUS> callbackStatus; ///< what EvtDriverDeviceAdd returned to the framework
    PDEVICE_OBJECT attached = nullptr;      ///< the driver's device object in the stack after the call, if any
};

class MachineObserver {
  public:
    virtual ~MachineObserver() = default;
    virtual void addStarting(DeviceNode &) {}
    virtual void addFinished(const AddReport &) {} ///< contexts of `attached` may be read here
    virtual void nodeChanged(DeviceNode &) {}      ///< started, removed, got a problem code
};

/// What a hub answers where the real drivers' statuses are not public.
struct HubStatuses {
    NTSTATUS shortBuffer = STATUS_BUFFER_TOO_SMALL;             ///< recalled
    NTSTATUS badPort = STATUS_INVALID_PARAMETER;                ///< port 0 or above the last one
    NTSTATUS stall = STATUS_UNSUCCESSFUL;                       ///< the device refused the request; recalled
    NTSTATUS emptyPortDescriptor = STATUS_DEVICE_NOT_CONNECTED; ///< recalled
    NTSTATUS emptyPortCycle = STATUS_UNSUCCESSFUL;              ///< recalled
};

struct MachineOptions {
    std::filesystem::path driver;     ///< native driver module; empty: the one built beside the simulator
    std::filesystem::path systemRoot; ///< folder for \SystemRoot; empty: a temporary one, removed at the end
    bool keepFiles = false;
    /// Hub drivers that are loaded from the start: "USBHUB3", "USBHUB", both or none. The root hub has the first of
    /// them; with none there is no root hub.
    std::vector<std::u16string> hubDrivers{u"USBHUB3"};
    HubStatuses hubStatuses;
    /// Opens the driver's image instead of mapping `driver`. What it throws as std::runtime_error is a failed load.
    std::function<std::unique_ptr<DriverImage>()> openImage;
};

/// A Windows machine that loads one driver and to which a test plugs devices. One machine at a time in a process.
class Machine {
  public:
    explicit Machine(MachineOptions options = {});
    ~Machine();
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    Kernel &kernel();
    void setObserver(MachineObserver *observer);

    /// The service's Parameters key, and the key path of a setup class.
    static std::u16string parametersKey();
    static std::u16string serviceKey();
    static std::u16string classKey(std::u16string_view classGuid);

    /// Writes the driver's name into the nine class filter lists as an earlier start of it left them, so that devices
    /// plugged before the control node starts already meet the filter.
    void presetClassFilters();
    /// Declares a service with an ordinary driver that passes everything on (for foreign filters in lists).
    void addService(std::u16string_view name);

    /// Maps the module and calls its entry point; on failure the module is unloaded again. A stack that needs the
    /// driver does this by itself. STATUS_SUCCESS when it is loaded already. Throws std::runtime_error when there is no
    /// module.
    NTSTATUS loadDriver();
    bool driverLoaded() const;
    PDRIVER_OBJECT driverObject() const;
    /// Removes every device that still has the driver in its stack (the control node too), calls DriverUnload, unmaps.
    /// Log workers have caught up before the driver object is deleted unless the work queue is paused or free.
    /// False while a handle is open on a device of the driver: the device has gone by surprise, its removal and the
    /// unload follow when the last handle is closed.
    bool unloadDriver();

    /// The driver's own root-enumerated node (hardware id "Tarvenholt\Myrtelhaven"), made and started.
    DeviceNode &plugControlNode();

    DeviceNode &rootNode();       ///< the node every tree ends in
    DeviceNode &hostController(); ///< a USB host controller with its root hub below, made on first use
    DeviceNode &rootHub();
    DeviceNode &pciRoot(); ///< the PCI bus that the host controller is on, made on first use
    /// Enumerates a device below `parent` (default: the root hub), builds its stack, starts it and enumerates its
    /// children. Works in the calling thread. Throws std::invalid_argument for a description that contradicts itself or
    /// the machine (name or instance id in use, no free port), std::logic_error when `parent` is not started.
    DeviceNode &plug(DeviceDescription description, DeviceNode *parent = nullptr);
    /// Takes the device away: children first, surprise removal, then remove. The node is gone afterwards.
    void unplug(DeviceNode &node);
    /// Removes and enumerates again with new physical device objects (what a port cycle or a restart does).
    DeviceNode &replug(DeviceNode &node);
    /// Sleep (S3): every device that runs leaves D0, those below others first. Wake: back, the other way round.
    void sleep();
    void wake();
    /// What the system does when it is shut down: IRP_MJ_SHUTDOWN to those that asked for it, then power off. Nothing
    /// is removed.
    void shutDown();
    DeviceNode *find(std::string_view name);
    /// What the disk of that name holds, whether it is plugged in or not. Throws std::invalid_argument when there never
    /// was such a disk.
    Medium &medium(std::string_view disk);
    /// The volume on the disk of that name, mounted when the disk arrived with a medium. Null without one.
    std::shared_ptr<Volume> volume(std::string_view disk);
    /// Mounts a running disk's medium, as after a change of the medium.
    std::shared_ptr<Volume> mount(DeviceNode &disk);
    std::vector<DeviceNode *> nodes(); ///< every node below the root, parents before children

    /// Does what was put off (port cycles, device state questions) and waits for queued log records. Every plug, unplug
    /// and replug from outside does the first at its end, every add the second.
    /// Records that the work queue holds back stay there while it is in order; a free one must not be paused.
    /// False when something goes on, since the driver waits in it for a process of user mode.
    bool settle();
    /// How many threads wait for a device that another thread's plug, start or removal is not done with.
    std::size_t waitingForDevices() const;
    /// What the driver left behind; empty after a clean unload.
    std::vector<std::string> leaks();

    struct Implementation;

  private:
    std::unique_ptr<Implementation> implementation_;
};

} // namespace sim
