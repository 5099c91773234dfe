#include "plug_and_play.h"

#include "../kernel/kernel.h"
#include "../kernel/security.h"
#include "../kernel/strings.h"
#include "../kernel/violation.h"
#include "disk_port.h"

#include <fmt/format.h>
#include <usbiodef.h>

#include <stdexcept>
#include <thread>

namespace sim::machine {

namespace {

PhysicalDevice &makePhysicalDevice(SimulatedDriver &busDriver, const std::shared_ptr<Hardware> &hardware,
                                   const std::u16string &name) {
    if (hardware->description.disk) {
        return busDriver.make<DiskPort>(hardware, name);
    }
    return busDriver.make<PhysicalDevice>(hardware, name);
}

} // namespace

Node &PlugAndPlay::plug(DeviceDescription description, Node &parent) {
    Operation operation(*this);
    const std::shared_ptr<Hardware> hardware = assembleHardware(description);
    {
        const std::lock_guard guard(tree_.mutex);
        if (!parent.state.acceptsChildren()) {
            throw std::logic_error("\"" + description.name + "\" cannot be plugged below \"" +
                                   parent.description().name + "\", which is not started");
        }
        connectHardware(hardware, *parent.hardware(), *tree_.root().hardware());
        media_.equip(*hardware);
    }
    Node *node = enumerate(hardware, parent);
    if (node == nullptr) {
        throw std::logic_error("the parent of \"" + description.name + "\" went away while it was being plugged");
    }
    return *node;
}

Node *PlugAndPlay::enumerate(const std::shared_ptr<Hardware> &hardware, Node &parent) {
    const DeviceDescription &description = hardware->description;
    const std::u16string busName = busDriverOf(description, parent.description());
    ChildList *reportedBy = nullptr;
    {
        const std::lock_guard guard(tree_.mutex);
        if (equalNoCase(busName, busDriverBelow(parent.description()))) {
            reportedBy = parent.state.childList;
        }
    }
    SimulatedDriver &driver = services_.simulated(busName);
    PhysicalDevice &device = makePhysicalDevice(driver, hardware, physicalDeviceName(busName));
    kernel().objects.reference(device.object(), nullptr);
    if (!description.security.empty()) {
        setDeviceSecurity(device.object(), securityFromSddl(description.security));
    }
    const auto node = std::make_shared<Node>(tree_.mutex, hardware, device.object());
    node->bus = &device;
    node->busList = reportedBy;
    node->state.stack = {{device.object(), std::u16string(view(driver.object()->DriverName))}};
    node->state.driverKey = newDriverKey(description);
    if (Services::isHubDriver(busName) && !Services::isHubDriver(description.service.value_or(u""))) {
        node->state.interfaces.push_back({GUID_DEVINTERFACE_USB_DEVICE});
    }
    if (reportedBy != nullptr) {
        reportedBy->add(device);
        reportToPlugAndPlay(*node, parent);
    }
    if (!tree_.link(node, parent)) {
        withdraw(*node); // it or its parent has gone meanwhile
        return nullptr;
    }
    const NodeClaim claim(tree_, *node);
    queryCapabilities(*node);
    configure(*node);
    return node.get();
}

void PlugAndPlay::withdraw(Node &node) {
    node.bus->markMissing();
    if (node.busList != nullptr) {
        node.busList->drop(*node.bus);
    }
    finishRemoval(node);
    kernel().objects.dereference(node.record.physicalDeviceObject, nullptr);
}

// learn.microsoft.com: IRP_MN_QUERY_DEVICE_RELATIONS, BusRelations: each object comes referenced, the list from pool.
void PlugAndPlay::reportToPlugAndPlay(Node &node, Node &parent) {
    const NodeClaim claim = claimUnlessOwn(parent); // its stack must not be taken apart under the request
    PDEVICE_OBJECT parentDevice = nullptr;
    {
        const std::lock_guard guard(tree_.mutex);
        parentDevice = parent.state.device;
        if (parentDevice == nullptr || parent.state.gone) {
            return; // just unplugged
        }
        kernel().objects.reference(parentDevice, nullptr);
    }
    const PnpResult result =
        sendToStack(parentDevice, IRP_MN_QUERY_DEVICE_RELATIONS, "IRP_MN_QUERY_DEVICE_RELATIONS",
                    [](PIO_STACK_LOCATION location) { location->Parameters.QueryDeviceRelations.Type = BusRelations; });
    bool found = false;
    if (auto *relations = reinterpret_cast<PDEVICE_RELATIONS>(result.information);
        NT_SUCCESS(result.status) && relations != nullptr) {
        for (ULONG i = 0; i < relations->Count; ++i) {
            found = found || relations->Objects[i] == node.record.physicalDeviceObject;
            kernel().objects.dereference(relations->Objects[i], nullptr);
        }
        freeRelations(relations);
    }
    kernel().objects.dereference(parentDevice, nullptr);
    if (!found && parent.started()) {
        bugCheck("bus relations", "IRP_MN_QUERY_DEVICE_RELATIONS",
                 "a driver in the stack of \"" + parent.description().name + "\" keeps the bus's devices to itself",
                 nullptr);
    }
}

NodeClaim PlugAndPlay::claimUnlessOwn(Node &node) {
    {
        const std::lock_guard guard(tree_.mutex);
        if (node.state.owner == std::this_thread::get_id()) {
            return {};
        }
    }
    return tree_.claim(node);
}

void PlugAndPlay::configure(Node &node) {
    if (!buildStack(node) || !start(node)) {
        return;
    }
    enumerateChildren(node);
}

void PlugAndPlay::enumerateChildren(Node &node) {
    std::vector<std::shared_ptr<Hardware>> below;
    {
        const std::lock_guard guard(tree_.mutex);
        below = node.hardware()->below;
    }
    for (const auto &hardware : below) {
        enumerate(hardware, node);
    }
}

// learn.microsoft.com: IRP_MN_QUERY_CAPABILITIES; the sender presets size, version, address and number.
void PlugAndPlay::queryCapabilities(Node &node) {
    DEVICE_CAPABILITIES capabilities{};
    capabilities.Size = sizeof(capabilities);
    capabilities.Version = 1;
    capabilities.Address = noAddress;
    capabilities.UINumber = noAddress;
    const PnpResult result = sendToStack(
        node.physicalDevice(), IRP_MN_QUERY_CAPABILITIES, "IRP_MN_QUERY_CAPABILITIES",
        [&](PIO_STACK_LOCATION location) { location->Parameters.DeviceCapabilities.Capabilities = &capabilities; });
    const std::lock_guard guard(tree_.mutex);
    node.state.capabilityAddress = NT_SUCCESS(result.status) ? capabilities.Address : noAddress;
}

std::u16string PlugAndPlay::physicalDeviceName(std::u16string_view busDriver) {
    if (Services::isHubDriver(busDriver)) {
        return toUtf16(fmt::format("\\Device\\USBPDO-{}", usbNames_++));
    }
    return toUtf16(fmt::format("\\Device\\{:08x}", autoNames_++));
}

std::u16string PlugAndPlay::newDriverKey(const DeviceDescription &description) {
    if (!description.classGuid) {
        return {};
    }
    const std::lock_guard guard(tree_.mutex);
    unsigned &last = driverKeys_[upcase(std::u16string_view(*description.classGuid))];
    return *description.classGuid + toUtf16(fmt::format("\\{:04}", last++));
}

} // namespace sim::machine
