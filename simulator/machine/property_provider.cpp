#include <initguid.h>

#include "property_provider.h"

#include "../kernel/kernel.h"
#include "../kernel/strings.h"
#include "../kernel/violation.h"
#include "guid_text.h"
#include "services.h"

#include <devpkey.h>
#include <fmt/format.h>
#include <usbiodef.h>

#include <algorithm>
#include <cstring>

namespace sim::machine {

namespace {

/// A property's value, or nothing when the device has none.
using Value = std::optional<std::vector<std::uint8_t>>;

Value text(const std::optional<std::u16string> &value) {
    if (!value) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(2 * (value->size() + 1));
    std::memcpy(bytes.data(), value->data(), 2 * value->size());
    return bytes;
}

Value list(const std::optional<std::vector<std::u16string>> &values) {
    if (!values) {
        return std::nullopt;
    }
    std::u16string joined;
    for (const std::u16string &one : *values) {
        joined += one;
        joined += u'\0';
    }
    return text(joined);
}

template<typename Plain>
Value plain(const Plain &value) {
    std::vector<std::uint8_t> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

std::optional<std::u16string> notEmpty(std::u16string value) {
    return value.empty() ? std::nullopt : std::optional(std::move(value));
}

std::optional<std::u16string> enumeratorOf(const DeviceDescription &description) {
    if (description.enumerator) {
        return notEmpty(*description.enumerator);
    }
    return notEmpty(description.instanceId.substr(0, description.instanceId.find(u'\\')));
}

std::optional<std::u16string> classNameOf(const DeviceDescription &description) {
    if (!description.classGuid) {
        return std::nullopt;
    }
    const auto value = kernel().registry.value(std::u16string(classesKey) + u"\\" + *description.classGuid, u"Class");
    if (!value || value->data.size() < 2) {
        return std::nullopt;
    }
    std::u16string name(value->data.size() / 2, u'\0');
    std::memcpy(name.data(), value->data.data(), 2 * name.size());
    return name.substr(0, name.find(u'\0'));
}

std::optional<std::u16string> locationOf(const Node &node) {
    if (!node.description().usb || node.state.parent == nullptr) {
        return std::nullopt;
    }
    return toUtf16(fmt::format("Port_#{:04}.Hub_#{:04}", node.hardware()->address,
                               std::min<std::uint32_t>(node.state.parent->hardware()->address, 9999)));
}

/// A value given raw, by its name in the description.
std::optional<NTSTATUS> rawValue(const DeviceDescription &description, const char *name, std::vector<std::uint8_t> &out,
                                 DEVPROPTYPE *type) {
    const auto found = description.rawProperties.find(name);
    if (found == description.rawProperties.end()) {
        return std::nullopt;
    }
    if (found->second.failure) {
        return *found->second.failure;
    }
    out = found->second.data;
    if (type != nullptr) {
        *type = found->second.type;
    }
    return STATUS_SUCCESS;
}

NTSTATUS give(Value value, std::vector<std::uint8_t> &out) {
    if (!value) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    out = std::move(*value);
    return STATUS_SUCCESS;
}

/// How a registry property is called in DeviceDescription::rawProperties.
const char *rawName(DEVICE_REGISTRY_PROPERTY property) {
    switch (property) {
    case DevicePropertyDeviceDescription:
        return "DeviceDesc";
    case DevicePropertyHardwareID:
        return "HardwareId";
    case DevicePropertyCompatibleIDs:
        return "CompatibleIds";
    case DevicePropertyClassName:
        return "Class";
    case DevicePropertyClassGuid:
        return "ClassGuid";
    case DevicePropertyDriverKeyName:
        return "Driver";
    case DevicePropertyManufacturer:
        return "Manufacturer";
    case DevicePropertyFriendlyName:
        return "FriendlyName";
    case DevicePropertyLocationInformation:
        return "LocationInformation";
    case DevicePropertyPhysicalDeviceObjectName:
        return "PhysicalDeviceObjectName";
    case DevicePropertyEnumeratorName:
        return "EnumeratorName";
    case DevicePropertyAddress:
        return "Address";
    default:
        return "";
    }
}

Value registryValue(const Node &node, DEVICE_REGISTRY_PROPERTY property) {
    const DeviceDescription &description = node.description();
    switch (property) {
    case DevicePropertyDeviceDescription:
        return text(description.description ? description.description : description.busReportedDescription);
    case DevicePropertyHardwareID:
        return list(description.hardwareIds);
    case DevicePropertyCompatibleIDs:
        return list(description.compatibleIds);
    case DevicePropertyClassName:
        return text(classNameOf(description));
    case DevicePropertyClassGuid:
        return text(description.classGuid);
    case DevicePropertyDriverKeyName:
        return text(notEmpty(node.state.driverKey));
    case DevicePropertyManufacturer:
        return text(description.manufacturer);
    case DevicePropertyFriendlyName:
        return text(description.friendlyName);
    case DevicePropertyLocationInformation:
        return text(locationOf(node));
    case DevicePropertyPhysicalDeviceObjectName:
        return text(notEmpty(kernel().objects.nameOf(node.state.device)));
    case DevicePropertyEnumeratorName:
        return text(enumeratorOf(description));
    case DevicePropertyAddress:
        return node.state.capabilityAddress == 0xFFFFFFFF ? Value() : plain(node.state.capabilityAddress);
    default:
        notSimulated("IoGetDeviceProperty", fmt::format("property {}", static_cast<int>(property)), nullptr);
    }
}

/// One key of deviceProperty: its raw name, its type and where its value comes from.
struct KeyedProperty {
    const DEVPROPKEY &key;
    const char *rawName;
    DEVPROPTYPE type;
    Value (*value)(const Node &);
};

const std::vector<KeyedProperty> &keyedProperties() {
    static const std::vector<KeyedProperty> properties{
        {DEVPKEY_Device_DeviceDesc, "DeviceDesc", DEVPROP_TYPE_STRING,
         [](const Node &node) { return registryValue(node, DevicePropertyDeviceDescription); }},
        {DEVPKEY_Device_HardwareIds, "HardwareId", DEVPROP_TYPE_STRING_LIST,
         [](const Node &node) { return list(node.description().hardwareIds); }},
        {DEVPKEY_Device_CompatibleIds, "CompatibleIds", DEVPROP_TYPE_STRING_LIST,
         [](const Node &node) { return list(node.description().compatibleIds); }},
        {DEVPKEY_Device_Service, "Service", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(node.description().service); }},
        {DEVPKEY_Device_ClassGuid, "ClassGuid", DEVPROP_TYPE_GUID,
         [](const Node &node) {
             const auto guid = guidFromText(node.description().classGuid.value_or(u""));
             return guid ? plain(*guid) : Value();
         }},
        {DEVPKEY_Device_Driver, "Driver", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(notEmpty(node.state.driverKey)); }},
        {DEVPKEY_Device_FriendlyName, "FriendlyName", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(node.description().friendlyName); }},
        {DEVPKEY_Device_EnumeratorName, "EnumeratorName", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(enumeratorOf(node.description())); }},
        {DEVPKEY_Device_LocationPaths, "LocationPaths", DEVPROP_TYPE_STRING_LIST, [](const Node &) { return Value(); }},
        {DEVPKEY_Device_InstanceId, "InstanceId", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(node.description().instanceId); }},
        {DEVPKEY_Device_Parent, "Parent", DEVPROP_TYPE_STRING,
         [](const Node &node) {
             return node.record.parent == nullptr || node.state.parent == nullptr
                        ? Value()
                        : text(node.state.parent->description().instanceId);
         }},
        {DEVPKEY_Device_BusReportedDeviceDesc, "BusReportedDeviceDesc", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(node.description().busReportedDescription); }},
        {DEVPKEY_Device_MatchingDeviceId, "MatchingDeviceId", DEVPROP_TYPE_STRING,
         [](const Node &node) { return text(node.description().matchingDeviceId); }},
    };
    return properties;
}

/// `\??\USB#VID_0781&PID_5581#A2005#{guid}`: the instance id with its backslashes replaced, then the class.
std::u16string linkName(const DeviceDescription &description, const GUID &interfaceClass) {
    std::u16string path = description.instanceId;
    std::replace(path.begin(), path.end(), u'\\', u'#');
    return u"\\??\\" + path + u"#" + textOfGuid(interfaceClass);
}

} // namespace

// learn.microsoft.com: IoGetDeviceProperty.
NTSTATUS PropertyProvider::registryProperty(PDEVICE_OBJECT physicalDevice, DEVICE_REGISTRY_PROPERTY property,
                                            std::vector<std::uint8_t> &out) {
    if (property < DevicePropertyDeviceDescription || property > DevicePropertyContainerID) {
        return STATUS_INVALID_PARAMETER_2;
    }
    const Node *node = tree_.byDevice(physicalDevice);
    if (node == nullptr) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    const std::lock_guard guard(tree_.mutex);
    if (const auto status = rawValue(node->description(), rawName(property), out, nullptr)) {
        return *status;
    }
    return give(registryValue(*node, property), out);
}

// learn.microsoft.com: IoGetDevicePropertyData. A key that nobody set is absent.
NTSTATUS PropertyProvider::deviceProperty(PDEVICE_OBJECT physicalDevice, const DEVPROPKEY &key,
                                          std::vector<std::uint8_t> &out, DEVPROPTYPE &type) {
    type = DEVPROP_TYPE_EMPTY;
    const Node *node = tree_.byDevice(physicalDevice);
    if (node == nullptr) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    const std::lock_guard guard(tree_.mutex);
    for (const KeyedProperty &property : keyedProperties()) {
        if (property.key.pid != key.pid || !IsEqualGUID(property.key.fmtid, key.fmtid)) {
            continue;
        }
        if (const auto status = rawValue(node->description(), property.rawName, out, &type)) {
            return *status;
        }
        const NTSTATUS status = give(property.value(*node), out);
        type = NT_SUCCESS(status) ? property.type : DEVPROP_TYPE_EMPTY;
        return status;
    }
    return STATUS_OBJECT_NAME_NOT_FOUND;
}

// learn.microsoft.com: IoGetDeviceInterfaces. Interfaces belong to the physical device object.
std::vector<std::u16string> PropertyProvider::interfaces(PDEVICE_OBJECT physicalDevice, const GUID &interfaceClass,
                                                         bool enabledOnly) {
    std::vector<Node *> asked;
    if (physicalDevice == nullptr) {
        asked = tree_.all();
    } else if (Node *node = tree_.byDevice(physicalDevice)) {
        asked.push_back(node);
    }
    std::vector<std::u16string> links;
    const std::lock_guard guard(tree_.mutex);
    for (const Node *node : asked) {
        if (node->state.gone) {
            continue;
        }
        for (const DeviceInterface &interface : node->state.interfaces) {
            if (IsEqualGUID(interface.interfaceClass, interfaceClass) && (interface.enabled || !enabledOnly)) {
                links.push_back(linkName(node->description(), interfaceClass));
            }
        }
    }
    return links;
}

bool PropertyProvider::isPhysicalDevice(PDEVICE_OBJECT device) {
    return tree_.byDevice(device) != nullptr;
}

bool PropertyProvider::wasPhysicalDevice(PDEVICE_OBJECT device) {
    return tree_.hadDevice(device);
}

} // namespace sim::machine
