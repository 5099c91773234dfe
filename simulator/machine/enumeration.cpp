#include "plug_and_play.h"
#include "usb_wire.h"

#include "../kernel/kernel.h"
#include "../kernel/security.h"
#include "../kernel/strings.h"
#include "../kernel/violation.h"

#include <fmt/format.h>
#include <usbiodef.h>

#include <stdexcept>

namespace sim::machine {

namespace {

constexpr std::uint32_t noAddress = 0xFFFFFFFF;

bool isHub(const DeviceDescription &description) {
    return description.service && Services::isHubDriver(*description.service);
}

/// The number behind "&MI_" at the end of the first hardware id, or of the instance id's middle part.
std::uint32_t interfaceNumber(const DeviceDescription &description) {
    std::u16string id = upcase(description.hardwareIds && !description.hardwareIds->empty()
                                   ? std::u16string_view(description.hardwareIds->front())
                                   : std::u16string_view(description.instanceId));
    const std::size_t mark = id.find(u"&MI_");
    if (mark == std::u16string::npos) {
        return noAddress;
    }
    const std::string digits = toUtf8(std::u16string_view(id).substr(mark + 4, 2));
    std::size_t used = 0;
    try {
        const unsigned long number = std::stoul(digits, &used, 16);
        return used == digits.size() ? static_cast<std::uint32_t>(number) : noAddress;
    } catch (const std::exception &) {
        return noAddress;
    }
}

void forEach(const Hardware &hardware, const std::function<void(const Hardware &)> &visit) {
    visit(hardware);
    for (const auto &below : hardware.below) {
        forEach(*below, visit);
    }
}

void checkUnique(const Hardware &added, const Hardware &machine) {
    forEach(added, [&](const Hardware &mine) {
        forEach(machine, [&](const Hardware &other) {
            if (mine.description.name == other.description.name) {
                throw std::invalid_argument("there is a device \"" + mine.description.name + "\" already");
            }
            if (equalNoCase(mine.description.instanceId, other.description.instanceId)) {
                throw std::invalid_argument("there is a device with instance id " +
                                            toUtf8(mine.description.instanceId) + " already");
            }
        });
    });
}

} // namespace

Node &PlugAndPlay::plug(DeviceDescription description, Node &parent) {
    Operation operation(*this);
    const std::shared_ptr<Hardware> hardware = assemble(description);
    {
        const std::lock_guard guard(tree_.mutex);
        if (!parent.state.acceptsChildren()) {
            throw std::logic_error("\"" + description.name + "\" cannot be plugged below \"" +
                                   parent.description().name + "\", which is not started");
        }
        checkUnique(*hardware, *tree_.root().hardware());
        hardware->address = placeBelow(*hardware, *parent.hardware());
        parent.hardware()->below.push_back(hardware);
    }
    Node *node = enumerate(hardware, parent);
    if (node == nullptr) {
        throw std::logic_error("the parent of \"" + description.name + "\" went away while it was being plugged");
    }
    return *node;
}

std::shared_ptr<Hardware> PlugAndPlay::assemble(const DeviceDescription &description) const {
    if (description.name.empty() || description.instanceId.empty()) {
        throw std::invalid_argument("a device needs a name and an instance id");
    }
    if (description.usb) {
        checkDescriptors(*description.usb);
    }
    auto hardware = std::make_shared<Hardware>();
    hardware->description = description;
    for (const DeviceDescription &child : description.children) {
        auto below = assemble(child);
        below->address = placeBelow(*below, *hardware);
        hardware->below.push_back(std::move(below));
    }
    return hardware;
}

std::uint32_t PlugAndPlay::placeBelow(const Hardware &hardware, const Hardware &parent) const {
    const DeviceDescription &description = hardware.description;
    if (!isHub(parent.description) || !description.busDriver.empty()) {
        return description.address == noAddress ? interfaceNumber(description) : description.address;
    }
    const auto taken = [&](std::uint32_t port) {
        for (const auto &other : parent.below) {
            if (other.get() != &hardware && other->address == port) {
                return true;
            }
        }
        return false;
    };
    if (description.address != noAddress) {
        if (description.address == 0 || description.address > parent.description.hubPorts ||
            taken(description.address)) {
            throw std::invalid_argument(fmt::format("hub \"{}\" has no free port {} for \"{}\"",
                                                    parent.description.name, description.address, description.name));
        }
        return description.address;
    }
    for (std::uint32_t port = 1; port <= parent.description.hubPorts; ++port) {
        if (!taken(port)) {
            return port;
        }
    }
    throw std::invalid_argument("no port of hub \"" + parent.description.name + "\" is free");
}

Node *PlugAndPlay::enumerate(const std::shared_ptr<Hardware> &hardware, Node &parent) {
    const DeviceDescription &description = hardware->description;
    std::u16string busName = description.busDriver;
    ChildList *reportedBy = nullptr;
    {
        const std::lock_guard guard(tree_.mutex);
        if (busName.empty()) {
            busName = parent.state.busDriver;
        }
        if (equalNoCase(busName, parent.state.busDriver)) {
            reportedBy = parent.state.childList;
        }
    }
    if (busName.empty() || Services::isDriverUnderTest(busName)) {
        throw std::invalid_argument("no bus driver for \"" + description.name + "\" below \"" +
                                    parent.description().name + "\"");
    }
    SimulatedDriver &driver = services_.simulated(busName);
    PhysicalDevice &device = driver.make<PhysicalDevice>(hardware, physicalDeviceName(busName));
    kernel().objects.reference(device.object(), nullptr);
    if (!description.security.empty()) {
        setDeviceSecurity(device.object(), securityFromSddl(description.security));
    }
    const auto node = std::make_shared<Node>(tree_.mutex, hardware, device.object());
    node->bus = &device;
    node->busList = reportedBy;
    node->state.stack = {{device.object(), std::u16string(view(driver.object()->DriverName))}};
    node->state.driverKey = newDriverKey(description);
    if (Services::isHubDriver(busName) && !isHub(description)) {
        node->state.interfaces.push_back({GUID_DEVINTERFACE_USB_DEVICE});
    }
    if (reportedBy != nullptr) {
        reportedBy->add(device);
        reportToPlugAndPlay(*node, parent);
    }
    if (!tree_.link(node, parent)) {
        withdraw(*node);
        return nullptr;
    }
    queryCapabilities(*node);
    configure(*node);
    tree_.release(*node);
    return node.get();
}

/// The parent went away before the new device had a node.
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
    PDEVICE_OBJECT parentDevice = nullptr;
    {
        const std::lock_guard guard(tree_.mutex);
        parentDevice = parent.state.device;
        if (parentDevice == nullptr) {
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
