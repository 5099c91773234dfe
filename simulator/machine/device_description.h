#pragma once

#include "disk_description.h"

#include <ntifs.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// An address that is not known, as devices report it; below a hub, the next free port.
inline constexpr std::uint32_t noAddress = 0xFFFFFFFF;

/// Overrides what a property query answers: raw bytes of any length (with their device-property type), or a failure.
struct RawProperty {
    std::optional<NTSTATUS> failure;
    std::vector<std::uint8_t> data;
    std::uint32_t type = 0x12; ///< DEVPROP_TYPE_STRING
};

/// How the hub answers one kind of request for a port: fail, or answer fewer bytes or other bytes than the device gave.
/// The request header that every answer repeats is not counted: the port number (4 bytes) of connection information,
/// the 12 bytes of a descriptor request.
struct HubAnswer {
    std::optional<NTSTATUS> failure;
    std::optional<std::uint32_t> shortenTo;           ///< cut the answer to this many bytes (Information too)
    std::optional<std::vector<std::uint8_t>> replace; ///< answer these bytes after the request header instead
};

/// Class codes of one interface.
struct UsbInterfaceClass {
    std::uint8_t classCode = 0;
    std::uint8_t subClass = 0;
    std::uint8_t protocol = 0;
};

/// What a device says on the wire. The 18-byte device descriptor is composed from the fields.
struct UsbDescriptors {
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint16_t release = 0x0100; ///< bcdDevice
    std::uint8_t deviceClass = 0;
    std::uint8_t deviceSubClass = 0;
    std::uint8_t deviceProtocol = 0;
    std::uint8_t manufacturerIndex = 0;
    std::uint8_t productIndex = 0;
    std::uint8_t serialIndex = 0;
    std::uint8_t configurationCount = 1;
    std::uint8_t interfaceCount = 1;                 ///< bNumInterfaces of the configuration descriptor
    std::vector<UsbInterfaceClass> interfaceClasses; ///< of the interfaces in order; those left out have the device's
    std::uint16_t usbVersion = 0x0200;               ///< bcdUSB
    bool lowSpeed = false;
    std::vector<std::uint16_t> languages{0x0409};
    /// By index, the same text for every listed language, at most 126 characters. An index that is not here stalls, and
    /// so does a language that is not listed.
    std::map<std::uint8_t, std::u16string> strings;

    bool answersLater = false; ///< the hub pends requests for this device and completes them in another thread
    HubAnswer connectionInformation;
    HubAnswer configurationDescriptor;
    HubAnswer languageList;
    std::map<std::uint8_t, HubAnswer> stringAnswers;
};

/// One device as its bus reports it and as Windows installed it.
struct DeviceDescription {
    std::string name;                                       ///< what tests and scenarios call it; unique in a machine
    std::u16string instanceId;                              ///< e.g. "USB\VID_0781&PID_5581\A20054F5"
    std::optional<std::vector<std::u16string>> hardwareIds; ///< absent: the property does not exist
    std::optional<std::vector<std::u16string>> compatibleIds;
    std::optional<std::u16string>
        enumerator; ///< default: instance id up to the first backslash; empty text = no such property
    std::optional<std::u16string> classGuid;
    /// Function driver. Absent with a class: the device runs raw, with its filters only. Absent without a class: the
    /// device is not installed (code 28).
    std::optional<std::u16string> service;
    std::optional<std::u16string> description;
    std::optional<std::u16string> friendlyName;
    std::optional<std::u16string> manufacturer;
    std::optional<std::u16string> busReportedDescription;
    std::optional<std::u16string> matchingDeviceId;
    /// By name: "HardwareId", "CompatibleIds", "ClassGuid", "EnumeratorName", "Service", "BusReportedDeviceDesc",
    /// "DeviceDesc", "FriendlyName", "InstanceId", "MatchingDeviceId", "Manufacturer", "PhysicalDeviceObjectName".
    std::map<std::string, RawProperty> rawProperties;

    /// Driver that owns the physical device object, without "\Driver\". Empty: taken from the parent's service
    /// (hub driver, usbccgp, USBSTOR, host controller), "PnpManager" below the root.
    std::u16string busDriver;
    std::vector<std::u16string> lowerFilters; ///< device filters (not class filters), services that pass everything on
    std::vector<std::u16string> upperFilters;

    /// Capabilities Address: the port number below a hub (1-based). 0xFFFFFFFF means the next free port, below a
    /// composite parent the interface number of the hardware id.
    std::uint32_t address = noAddress;
    bool removable = true;
    bool uniqueId = true;
    std::optional<NTSTATUS> capabilitiesFailure; ///< the bus completes the capabilities query with this
    std::optional<NTSTATUS> startFailure;        ///< the bus completes the start with this: code 10
    std::uint32_t hubPorts = 16;                 ///< of a device whose service is a hub driver
    std::optional<UsbDescriptors> usb;
    /// Of a device whose service is the disk class driver; absent: a disk as its bus driver's disks are.
    std::optional<DiskDescription> disk;
    std::string security;  ///< SDDL of the physical device object; empty: none
    bool hasParent = true; ///< false: its device node has no parent node (a lone physical device object)
    /// Plug and Play ignores these until the device has started; below a composite parent they are its functions.
    std::vector<DeviceDescription> children;
};

} // namespace sim
