#include "hardware.h"

#include "../kernel/security.h"
#include "../kernel/strings.h"
#include "services.h"
#include "usb_wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <stdexcept>
#include <utility>

namespace sim::machine {

namespace {

/// The two hexadecimal digits behind "&MI_" of the first hardware id, or of the instance id.
std::uint32_t interfaceNumber(const DeviceDescription &description) {
    const bool hasIds = description.hardwareIds && !description.hardwareIds->empty();
    const std::string id = toUtf8(upcase(hasIds ? description.hardwareIds->front() : description.instanceId));
    const std::size_t mark = id.find("&MI_");
    std::uint32_t number = noAddress;
    if (mark != std::string::npos && mark + 6 <= id.size()) {
        const char *digits = id.data() + mark + 4;
        if (std::from_chars(digits, digits + 2, number, 16).ptr != digits + 2) {
            return noAddress;
        }
    }
    return number;
}

void requireBusDriver(const DeviceDescription &description, const DeviceDescription &parent) {
    const std::u16string service = busDriverOf(description, parent);
    if (service.empty() || Services::isDriverUnderTest(service)) {
        throw std::invalid_argument("\"" + description.name + "\" needs a bus driver: \"" + parent.name +
                                    "\" has none that reports devices");
    }
}

void forEach(const Hardware &hardware, const std::function<void(const Hardware &)> &visit) {
    visit(hardware);
    for (const auto &below : hardware.below) {
        forEach(*below, visit);
    }
}

void requireUnique(const Hardware &added, const Hardware &root) {
    forEach(added, [&](const Hardware &mine) {
        forEach(root, [&](const Hardware &other) {
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

bool isPortOf(const DeviceDescription &description, const DeviceDescription &parent) {
    const std::u16string below = busDriverBelow(parent);
    return Services::isHubDriver(below) && equalNoCase(busDriverOf(description, parent), below);
}

std::uint32_t choosePort(const DeviceDescription &description, const Hardware &hub) {
    const auto isFree = [&](std::uint32_t port) {
        return std::none_of(hub.below.begin(), hub.below.end(), [&](const auto &one) { return one->address == port; });
    };
    const std::uint32_t ports = hub.description.hubPorts;
    const std::uint32_t first = description.address == noAddress ? 1 : description.address;
    const std::uint32_t last = description.address == noAddress ? ports : description.address;
    for (std::uint32_t port = first; port != 0 && port <= std::min(last, ports); ++port) {
        if (isFree(port)) {
            return port;
        }
    }
    throw std::invalid_argument(
        description.address == noAddress
            ? fmt::format("no port of hub \"{}\" is free for \"{}\"", hub.description.name, description.name)
            : fmt::format("hub \"{}\" has no free port {} for \"{}\"", hub.description.name, description.address,
                          description.name));
}

std::uint32_t chooseAddress(const DeviceDescription &description, const Hardware &parent) {
    if (isPortOf(description, parent.description)) {
        return choosePort(description, parent);
    }
    return description.address == noAddress ? interfaceNumber(description) : description.address;
}

/// STORAGE_BUS_TYPE of the disks that a port driver makes.
std::uint32_t busTypeOf(std::u16string_view portDriver) {
    static const std::vector<std::pair<std::u16string_view, std::uint32_t>> drivers{
        {u"USBSTOR", 7}, {u"UASPSTOR", 7}, {u"storahci", 11}, {u"sdstor", 12}, {u"stornvme", 17}};
    for (const auto &[driver, type] : drivers) {
        if (equalNoCase(driver, portDriver)) {
            return type;
        }
    }
    return 0;
}

bool hasDiskDriver(const DeviceDescription &description) {
    return description.service && equalNoCase(*description.service, diskService);
}

void checkDisk(const DeviceDescription &description) {
    const MediumDescription &medium = description.disk->medium;
    if (!hasDiskDriver(description)) {
        throw std::invalid_argument("\"" + description.name + "\" has a medium but not the service \"disk\"");
    }
    if (medium.sectorBytes == 0 || medium.bytes == 0 || medium.bytes % medium.sectorBytes != 0 ||
        medium.bytes > 1ULL << 30) {
        throw std::invalid_argument("the medium of \"" + description.name +
                                    "\" must be whole sectors, at least one and at most 1 GiB");
    }
}

void attach(const std::shared_ptr<Hardware> &hardware, Hardware &parent) {
    requireBusDriver(hardware->description, parent.description);
    std::optional<DiskDescription> &disk = hardware->description.disk;
    if (hasDiskDriver(hardware->description) && !disk) {
        disk.emplace();
    }
    if (disk && !disk->busType) {
        disk->busType = busTypeOf(busDriverOf(hardware->description, parent.description));
    }
    hardware->address = chooseAddress(hardware->description, parent);
    hardware->above = &parent;
    parent.below.push_back(hardware);
}

} // namespace

std::u16string busDriverBelow(const DeviceDescription &parent) {
    return parent.instanceId == rootInstance ? std::u16string(rootBus) : parent.service.value_or(u"");
}

std::u16string busDriverOf(const DeviceDescription &description, const DeviceDescription &parent) {
    return description.busDriver.empty() ? busDriverBelow(parent) : description.busDriver;
}

std::shared_ptr<Hardware> assembleHardware(const DeviceDescription &description) {
    if (description.name.empty() || description.instanceId.empty()) {
        throw std::invalid_argument("a device needs a name and an instance id");
    }
    if (description.usb) {
        checkDescriptors(*description.usb);
    }
    if (description.disk) {
        checkDisk(description);
    }
    static_cast<void>(securityFromSddl(description.security)); // throws for what is no SDDL
    auto hardware = std::make_shared<Hardware>();
    hardware->description = description;
    for (const DeviceDescription &child : description.children) {
        auto below = assembleHardware(child);
        requireUnique(*below, *hardware);
        attach(below, *hardware);
    }
    return hardware;
}

void MediumStore::equip(Hardware &hardware) {
    if (hardware.description.disk) {
        const MediumDescription &wanted = hardware.description.disk->medium;
        const std::lock_guard guard(mutex_);
        std::shared_ptr<Medium> &medium = media_[hardware.description.name];
        if (medium == nullptr || medium->size() != wanted.bytes || medium->sectorBytes() != wanted.sectorBytes) {
            medium = std::make_shared<Medium>(wanted);
        }
        hardware.medium = medium;
    }
    for (const auto &below : hardware.below) {
        equip(*below);
    }
}

std::shared_ptr<Medium> MediumStore::find(const std::string &disk) const {
    const std::lock_guard guard(mutex_);
    const auto found = media_.find(disk);
    return found == media_.end() ? nullptr : found->second;
}

void connectHardware(const std::shared_ptr<Hardware> &hardware, Hardware &parent, const Hardware &root) {
    requireUnique(*hardware, root);
    attach(hardware, parent);
}

void disconnectHardware(Hardware &hardware) {
    if (Hardware *above = std::exchange(hardware.above, nullptr)) {
        std::erase_if(above->below, [&](const auto &one) { return one.get() == &hardware; });
    }
}

} // namespace sim::machine
