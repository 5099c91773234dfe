#include "device_parser.h"

#include "../../simulator/kernel/security.h"
#include "../../simulator/kernel/strings.h"
#include "../reg/key_paths.h"
#include "disk_parser.h"
#include "suggestion.h"
#include "usb_parser.h"
#include "value_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace cli {
namespace {

constexpr int deepestDevice = 16;

const std::vector<std::string> &propertyNames() {
    static const std::vector<std::string> names{
        "HardwareId", "CompatibleIds", "ClassGuid",  "EnumeratorName",   "Service",      "BusReportedDeviceDesc",
        "DeviceDesc", "FriendlyName",  "InstanceId", "MatchingDeviceId", "Manufacturer", "PhysicalDeviceObjectName"};
    return names;
}

void readText(MapReader &reader, std::string_view key, std::optional<std::u16string> &into) {
    if (const auto node = reader.take(key)) {
        into = node->isNull() ? std::nullopt : parseUtf16(*node, key);
    }
}

void readList(MapReader &reader, std::string_view key, std::optional<std::vector<std::u16string>> &into) {
    if (const auto node = reader.take(key)) {
        if (node->isNull()) {
            into.reset();
        } else {
            into = parseUtf16List(*node, key);
        }
    }
}

void readServices(MapReader &reader, std::string_view key, std::vector<std::u16string> &into) {
    if (const auto node = reader.take(key)) {
        into = parseUtf16List(*node, key);
    }
}

void readFlag(MapReader &reader, std::string_view key, bool &into) {
    if (const auto node = reader.take(key)) {
        into = node->flag(key).value_or(into);
    }
}

void readClass(MapReader &reader, sim::DeviceDescription &device) {
    const auto node = reader.take("class");
    if (!node) {
        return;
    }
    device.classGuid.reset();
    if (node->isNull()) {
        return;
    }
    const auto text = node->text("class");
    if (!text) {
        return;
    }
    device.classGuid = classGuidFor(*text);
    if (!device.classGuid) {
        node->problem(fmt::format("setup class '{}' is unknown; write its GUID in braces and quotes", *text));
    }
}

sim::RawProperty parseProperty(const YamlNode &node) {
    sim::RawProperty property;
    MapReader reader(node, "property");
    if (const auto failure = reader.take("fail")) {
        property.failure = parseStatusNode(*failure, "fail");
    }
    if (const auto bytes = reader.take("bytes")) {
        property.data = bytes->bytes("bytes").value_or(std::vector<std::uint8_t>());
    }
    if (const auto text = reader.take("text")) { // as it stands, without a terminator
        property.data = textBytes(parseUtf16(*text, "text").value_or(u""), false);
    }
    if (const auto type = reader.take("type")) {
        property.type = static_cast<std::uint32_t>(type->number("type", 0xFFFF).value_or(property.type));
    }
    reader.finish();
    return property;
}

void readProperties(MapReader &reader, sim::DeviceDescription &device) {
    const auto node = reader.take("properties");
    if (!node) {
        return;
    }
    MapReader properties(*node, "properties");
    for (const std::string &name : propertyNames()) {
        if (const auto property = properties.take(name)) {
            device.rawProperties[name] = parseProperty(*property);
        }
    }
    properties.finish();
}

void readChildren(MapReader &reader, sim::DeviceDescription &device, const DeviceLibrary *library, int depth) {
    const auto node = reader.take("children");
    if (!node) {
        return;
    }
    if (depth == deepestDevice) {
        node->problem("devices are nested too deeply, or a device contains itself");
        return;
    }
    MapReader(*node, "children");
    for (const YamlEntry &entry : node->entries()) {
        const auto known = std::find_if(device.children.begin(), device.children.end(),
                                        [&](const auto &child) { return child.name == entry.name; });
        if (entry.value.isNull()) { // takes a child of the library's device away
            if (known != device.children.end()) {
                device.children.erase(known);
            }
            continue;
        }
        sim::DeviceDescription child = known != device.children.end() ? *known : sim::DeviceDescription();
        child.name = entry.name;
        MapReader childReader(entry.value, "device '" + entry.name + "'");
        readDevice(childReader, child, library, depth + 1);
        childReader.finish();
        checkDevice(entry.key, child);
        if (known != device.children.end()) {
            *known = std::move(child);
        } else {
            device.children.push_back(std::move(child));
        }
    }
}

void readSecurity(MapReader &reader, sim::DeviceDescription &device) {
    const auto node = reader.take("security");
    if (!node) {
        return;
    }
    device.security.clear();
    if (node->isNull()) {
        return;
    }
    try {
        const std::string sddl = node->text("security").value_or(std::string());
        sim::securityFromSddl(sddl);
        device.security = sddl;
    } catch (const std::invalid_argument &error) {
        node->problem(fmt::format("security is no SDDL text that this machine knows: {}", error.what()));
    }
}

void takeFromLibrary(MapReader &reader, sim::DeviceDescription &device, const DeviceLibrary *library) {
    const auto use = reader.take("use");
    if (!use) {
        return;
    }
    const auto name = use->text("use");
    if (!name) {
        return;
    }
    const sim::DeviceDescription *shared = library ? library->find(*name) : nullptr;
    if (!shared) {
        use->problem(fmt::format("the device library has no '{}'{}", *name,
                                 library ? didYouMean(*name, library->names()) : std::string()));
        return;
    }
    const std::string ownName = device.name;
    device = *shared;
    device.name = ownName;
}

} // namespace

void readDevice(MapReader &reader, sim::DeviceDescription &device, const DeviceLibrary *library, int depth) {
    takeFromLibrary(reader, device, library);
    if (const auto instance = reader.take("instance")) {
        device.instanceId = parseUtf16(*instance, "instance").value_or(u"");
    }
    readList(reader, "hardware-ids", device.hardwareIds);
    readList(reader, "compatible-ids", device.compatibleIds);
    if (const auto enumerator = reader.take("enumerator")) {
        device.enumerator = enumerator->isNull() ? std::u16string() : parseUtf16(*enumerator, "enumerator");
    }
    readClass(reader, device);
    readText(reader, "service", device.service);
    readText(reader, "description", device.description);
    readText(reader, "friendly-name", device.friendlyName);
    readText(reader, "manufacturer", device.manufacturer);
    readText(reader, "bus-reported-description", device.busReportedDescription);
    readText(reader, "matching-device-id", device.matchingDeviceId);
    readProperties(reader, device);
    if (const auto driver = reader.take("bus-driver")) {
        device.busDriver = parseUtf16(*driver, "bus-driver").value_or(u"");
    }
    readServices(reader, "lower-filters", device.lowerFilters);
    readServices(reader, "upper-filters", device.upperFilters);
    if (const auto port = reader.take("port")) {
        device.address = static_cast<std::uint32_t>(port->number("port", 0xFFFFFFFF).value_or(device.address));
    }
    readFlag(reader, "removable", device.removable);
    readFlag(reader, "unique-id", device.uniqueId);
    if (const auto failure = reader.take("capabilities-failure")) {
        device.capabilitiesFailure = parseStatusNode(*failure, "capabilities-failure");
    }
    if (const auto failure = reader.take("start-failure")) {
        device.startFailure = parseStatusNode(*failure, "start-failure");
    }
    if (const auto usb = reader.take("usb")) {
        if (usb->isNull()) {
            device.usb.reset();
        } else {
            if (!device.usb) {
                device.usb.emplace();
            }
            readUsb(*usb, *device.usb);
        }
    }
    if (const auto disk = reader.take("disk")) {
        if (disk->isNull()) {
            device.disk.reset();
        } else {
            if (!device.disk) {
                device.disk.emplace();
            }
            readDisk(*disk, *device.disk);
        }
    }
    readSecurity(reader, device);
    readChildren(reader, device, library, depth);
}

void checkDevice(const YamlNode &node, const sim::DeviceDescription &device) {
    if (device.instanceId.empty()) {
        node.problem("a device needs an 'instance' such as USB\\VID_0781&PID_5581\\A20054F5");
    }
    if (device.disk && (!device.service || !sim::equalNoCase(*device.service, u"disk"))) {
        node.problem("a device with 'disk' needs the service disk");
    }
}

} // namespace cli
