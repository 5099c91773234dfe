#include "plug_and_play.h"

#include "disk_device.h"

#include "../framework/framework.h"
#include "../kernel/kernel.h"
#include "../kernel/security.h"
#include "../kernel/strings.h"
#include "../kernel/thread.h"
#include "../kernel/violation.h"

#include <usbiodef.h>

namespace sim::machine {

bool PlugAndPlay::buildStack(Node &node) {
    const DeviceDescription &description = node.description();
    if (!description.service && !description.classGuid) {
        setProblem(node, problem::failedInstall, STATUS_SUCCESS);
        return false;
    }
    if (description.service && !Services::isDriverUnderTest(*description.service)) {
        services_.declare(*description.service);
    }
    for (const auto *filters : {&description.lowerFilters, &description.upperFilters}) {
        for (const std::u16string &filter : *filters) {
            services_.declare(filter);
        }
    }
    const std::vector<StackMember> plan = planStack(description, kernel().registry);
    std::vector<LoadedService> loaded;
    if (!loadMembers(node, plan, loaded)) {
        return false;
    }
    for (std::size_t i = 0; i < plan.size(); ++i) {
        const NTSTATUS status = addMember(node, plan[i], loaded[i]);
        if (!NT_SUCCESS(status)) {
            removeStack(node, StackRemoval::afterFailure);
            setProblem(node, problem::failedAdd, status);
            return false;
        }
    }
    applySecurity(node);
    return true;
}

/// Every driver is loaded before the first is asked (recalled from public implementations; the documentation tells it
/// driver by driver).
bool PlugAndPlay::loadMembers(Node &node, const std::vector<StackMember> &plan, std::vector<LoadedService> &loaded) {
    for (const StackMember &member : plan) {
        const LoadedService service = services_.load(member.service);
        if (service.object == nullptr) {
            setProblem(node, service.problemCode, service.status);
            return false;
        }
        loaded.push_back(service);
    }
    return true;
}

NTSTATUS PlugAndPlay::addMember(Node &node, const StackMember &member, const LoadedService &service) {
    if (service.simulated == nullptr) {
        return addDriverUnderTest(node, service.object);
    }
    PDEVICE_OBJECT before = topOfStack(node.physicalDevice());
    addSimulated(node, member, *service.simulated);
    noteAttached(node, before, "AddDevice");
    return STATUS_SUCCESS;
}

// learn.microsoft.com: DRIVER_ADD_DEVICE.
NTSTATUS PlugAndPlay::addDriverUnderTest(Node &node, PDRIVER_OBJECT driver) {
    PDEVICE_OBJECT physicalDevice = node.physicalDevice();
    PDEVICE_OBJECT before = topOfStack(physicalDevice);
    AddReport report;
    report.node = &node;
    MachineObserver *watching = observer;
    if (watching != nullptr) {
        watching->addStarting(node);
    }
    framework::clearLastDeviceAddCallbackStatus();
    if (driver->DriverExtension->AddDevice == nullptr) {
        report.returned = STATUS_INVALID_DEVICE_REQUEST; // a driver without AddDevice has no business in a stack
    } else {
        const CallbackContract contract("AddDevice");
        report.returned = driver->DriverExtension->AddDevice(driver, physicalDevice);
    }
    report.callbackStatus = framework::lastDeviceAddCallbackStatus();
    kernel().workers.settle();
    PDEVICE_OBJECT top = topOfStack(physicalDevice);
    if (!NT_SUCCESS(report.returned) && top != before) {
        bugCheck("device stack", "AddDevice",
                 "AddDevice failed with status " + hex(static_cast<ULONG>(report.returned)) +
                     " but left its device attached",
                 reinterpret_cast<const void *>(driver->DriverExtension->AddDevice));
    }
    noteAttached(node, before, "AddDevice");
    report.attached = top == before ? nullptr : top;
    if (watching != nullptr) {
        watching->addFinished(report);
    }
    return report.returned;
}

void PlugAndPlay::addSimulated(Node &node, const StackMember &member, SimulatedDriver &driver) {
    PDEVICE_OBJECT physicalDevice = node.physicalDevice();
    if (member.role == StackRole::filter) {
        driver.make<PassThroughFilter>(physicalDevice);
        return;
    }
    FunctionDevice *function = nullptr;
    std::vector<DeviceInterface> interfaces;
    if (Services::isHubDriver(member.service)) {
        function = &driver.make<HubDevice>(physicalDevice, node.description().hubPorts, hubStatuses_,
                                           [this](PDEVICE_OBJECT device) { portCycled(device); });
        interfaces.push_back({GUID_DEVINTERFACE_USB_HUB});
    } else if (auto *port = dynamic_cast<DiskPort *>(node.bus); port != nullptr) {
        function = &driver.make<DiskDevice>(physicalDevice, *port, diskNumbers_++);
    } else {
        function = &driver.make<FunctionDevice>(physicalDevice);
    }
    const std::lock_guard guard(tree_.mutex);
    node.state.childList = &function->children();
    node.state.interfaces.insert(node.state.interfaces.end(), interfaces.begin(), interfaces.end());
}

/// Records what an AddDevice routine put on the stack.
void PlugAndPlay::noteAttached(Node &node, PDEVICE_OBJECT before, const char *routine) {
    for (PDEVICE_OBJECT device = before->AttachedDevice; device != nullptr; device = device->AttachedDevice) {
        if ((device->Flags & DO_DEVICE_INITIALIZING) != 0) {
            bugCheck("device initializing", routine,
                     "the device object of " + toUtf8(view(device->DriverObject->DriverName)) + " above \"" +
                         node.description().name + "\" still has DO_DEVICE_INITIALIZING set",
                     nullptr);
        }
        const std::lock_guard guard(tree_.mutex);
        node.state.stack.push_back({device, std::u16string(view(device->DriverObject->DriverName))});
    }
}

// learn.microsoft.com: "Controlling device access": after AddDevice, on every object of the stack.
void PlugAndPlay::applySecurity(Node &node) {
    const std::vector<std::uint8_t> security = configuredSecurity(node.description(), kernel().registry);
    if (security.empty()) {
        return;
    }
    std::vector<StackEntry> stack;
    {
        const std::lock_guard guard(tree_.mutex);
        stack = node.state.stack;
    }
    for (const StackEntry &entry : stack) {
        setDeviceSecurity(entry.device, security);
    }
}

} // namespace sim::machine
