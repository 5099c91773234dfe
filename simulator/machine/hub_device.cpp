#include "hub_device.h"

#include "usb_wire.h"

#include <usbioctl.h>

#include <algorithm>
#include <cstring>

namespace sim::machine {

namespace {

const HubAnswer *answerFor(const UsbDescriptors &usb, std::uint8_t type, std::uint8_t index) {
    if (type == USB_CONFIGURATION_DESCRIPTOR_TYPE) {
        return &usb.configurationDescriptor;
    }
    if (type == USB_STRING_DESCRIPTOR_TYPE && index == 0) {
        return &usb.languageList;
    }
    if (type == USB_STRING_DESCRIPTOR_TYPE) {
        const auto found = usb.stringAnswers.find(index);
        return found == usb.stringAnswers.end() ? nullptr : &found->second;
    }
    return nullptr;
}

std::optional<std::vector<std::uint8_t>> descriptor(const UsbDescriptors &usb, std::uint8_t type, std::uint8_t index,
                                                    std::uint16_t language) {
    switch (type) {
    case USB_DEVICE_DESCRIPTOR_TYPE:
        return deviceDescriptor(usb);
    case USB_CONFIGURATION_DESCRIPTOR_TYPE:
        if (index >= usb.configurationCount) {
            return std::nullopt;
        }
        return configurationDescriptor(usb);
    case USB_STRING_DESCRIPTOR_TYPE:
        return stringDescriptor(usb, index, language);
    default:
        return std::nullopt;
    }
}

/// The bytes that reach the caller's buffer of `room` bytes behind the request header.
std::vector<std::uint8_t> shaped(std::vector<std::uint8_t> bytes, const HubAnswer *answer, std::size_t room) {
    if (answer != nullptr && answer->replace) {
        bytes = *answer->replace;
    }
    if (answer != nullptr && answer->shortenTo) {
        bytes.resize(std::min<std::size_t>(bytes.size(), *answer->shortenTo));
    }
    bytes.resize(std::min(bytes.size(), room));
    return bytes;
}

} // namespace

HubDevice::HubDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, std::uint32_t ports, HubStatuses statuses,
                     CyclePort cyclePort)
    : FunctionDevice(driver, physicalDevice), ports_(ports), statuses_(statuses), cyclePort_(std::move(cyclePort)) {}

NTSTATUS HubDevice::deviceControl(PIRP irp, PIO_STACK_LOCATION location) {
    if (!answersLater(irp, location)) {
        return answer(irp, location);
    }
    IoMarkIrpPending(irp);
    removeLock_.enter(); // until the answer, as the call itself is inside
    wire_.post(
        [this, irp, location] {
            answer(irp, location);
            removeLock_.leave();
        },
        true);
    return STATUS_PENDING;
}

/// Every request begins with the port number.
bool HubDevice::answersLater(PIRP irp, PIO_STACK_LOCATION location) const {
    ULONG port = 0;
    if (location->Parameters.DeviceIoControl.InputBufferLength < sizeof(port)) {
        return false;
    }
    std::memcpy(&port, irp->AssociatedIrp.SystemBuffer, sizeof(port));
    const PhysicalDevice *device = children_.at(port);
    return device != nullptr && device->hardware().description.usb && device->hardware().description.usb->answersLater;
}

NTSTATUS HubDevice::answer(PIRP irp, PIO_STACK_LOCATION location) {
    switch (location->Parameters.DeviceIoControl.IoControlCode) {
    case IOCTL_USB_GET_NODE_CONNECTION_INFORMATION:
        return connectionInformation(irp, location);
    case IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION:
        return descriptorFromConnection(irp, location);
    case IOCTL_USB_HUB_CYCLE_PORT:
        return cyclePort(irp, location);
    default:
        return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

// learn.microsoft.com: IOCTL_USB_GET_NODE_CONNECTION_INFORMATION. An empty port is a success.
NTSTATUS HubDevice::connectionInformation(PIRP irp, PIO_STACK_LOCATION location) {
    const auto &lengths = location->Parameters.DeviceIoControl;
    if (lengths.InputBufferLength < sizeof(USB_NODE_CONNECTION_INFORMATION) ||
        lengths.OutputBufferLength < sizeof(USB_NODE_CONNECTION_INFORMATION)) {
        return complete(irp, statuses_.shortBuffer, 0);
    }
    auto *buffer = static_cast<std::uint8_t *>(irp->AssociatedIrp.SystemBuffer);
    USB_NODE_CONNECTION_INFORMATION information{};
    std::memcpy(&information.ConnectionIndex, buffer, sizeof(information.ConnectionIndex));
    const ULONG port = information.ConnectionIndex;
    if (port == 0 || port > ports_) {
        return complete(irp, statuses_.badPort, 0);
    }
    const PhysicalDevice *device = children_.at(port);
    const HubAnswer *answer = nullptr;
    if (device != nullptr && device->hardware().description.usb) {
        const UsbDescriptors &usb = *device->hardware().description.usb;
        answer = &usb.connectionInformation;
        if (answer->failure) {
            return complete(irp, *answer->failure, 0);
        }
        const std::vector<std::uint8_t> bytes = deviceDescriptor(usb);
        std::memcpy(&information.DeviceDescriptor, bytes.data(), bytes.size());
        information.CurrentConfigurationValue = device->started() ? 1 : 0;
        information.LowSpeed = usb.lowSpeed;
        information.DeviceIsHub = usb.deviceClass == 0x09;
        information.DeviceAddress = static_cast<USHORT>(port);
        information.ConnectionStatus = DeviceConnected;
    } else if (device != nullptr) {
        information.ConnectionStatus = DeviceFailedEnumeration; // it never told its descriptors
    }
    const auto *whole = reinterpret_cast<const std::uint8_t *>(&information);
    constexpr std::size_t header = sizeof(information.ConnectionIndex);
    const std::vector<std::uint8_t> body =
        shaped({whole + header, whole + sizeof(information)}, answer, lengths.OutputBufferLength - header);
    std::memcpy(buffer + header, body.data(), body.size());
    return complete(irp, STATUS_SUCCESS, header + body.size());
}

// learn.microsoft.com: IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION. The hub makes the request a GET_DESCRIPTOR
// whatever the first two bytes of the set-up packet say; Information counts what the device sent.
NTSTATUS HubDevice::descriptorFromConnection(PIRP irp, PIO_STACK_LOCATION location) {
    const auto &lengths = location->Parameters.DeviceIoControl;
    constexpr std::size_t header = sizeof(USB_DESCRIPTOR_REQUEST);
    if (lengths.InputBufferLength < header || lengths.OutputBufferLength < header) {
        return complete(irp, statuses_.shortBuffer, 0);
    }
    auto *buffer = static_cast<std::uint8_t *>(irp->AssociatedIrp.SystemBuffer);
    USB_DESCRIPTOR_REQUEST request;
    std::memcpy(&request, buffer, header);
    if (request.ConnectionIndex == 0 || request.ConnectionIndex > ports_) {
        return complete(irp, statuses_.badPort, 0);
    }
    if (request.SetupPacket.wLength > lengths.OutputBufferLength - header) {
        return complete(irp, statuses_.shortBuffer, 0);
    }
    const PhysicalDevice *device = children_.at(request.ConnectionIndex);
    if (device == nullptr || !device->hardware().description.usb) {
        return complete(irp, statuses_.emptyPortDescriptor, 0);
    }
    const UsbDescriptors &usb = *device->hardware().description.usb;
    const auto type = static_cast<std::uint8_t>(request.SetupPacket.wValue >> 8);
    const auto index = static_cast<std::uint8_t>(request.SetupPacket.wValue & 0xFF);
    const HubAnswer *answer = answerFor(usb, type, index);
    if (answer != nullptr && answer->failure) {
        return complete(irp, *answer->failure, 0);
    }
    const auto sent = descriptor(usb, type, index, request.SetupPacket.wIndex);
    if (!sent && !(answer != nullptr && answer->replace)) {
        return complete(irp, statuses_.stall, 0);
    }
    const std::vector<std::uint8_t> body =
        shaped(sent.value_or(std::vector<std::uint8_t>{}), answer, request.SetupPacket.wLength);
    request.SetupPacket.bmRequest = 0x80;
    request.SetupPacket.bRequest = USB_REQUEST_GET_DESCRIPTOR;
    std::memcpy(buffer, &request, header);
    if (!body.empty()) {
        std::memcpy(buffer + header, body.data(), body.size());
    }
    return complete(irp, STATUS_SUCCESS, header + body.size());
}

// learn.microsoft.com: IOCTL_USB_HUB_CYCLE_PORT. It returns before the port's device is enumerated again (recalled);
// the page lists no output, so only a caller that left room gets the status.
NTSTATUS HubDevice::cyclePort(PIRP irp, PIO_STACK_LOCATION location) {
    const auto &lengths = location->Parameters.DeviceIoControl;
    if (lengths.InputBufferLength < sizeof(USB_CYCLE_PORT_PARAMS)) {
        return complete(irp, statuses_.shortBuffer, 0);
    }
    USB_CYCLE_PORT_PARAMS parameters;
    std::memcpy(&parameters, irp->AssociatedIrp.SystemBuffer, sizeof(parameters));
    if (parameters.ConnectionIndex == 0 || parameters.ConnectionIndex > ports_) {
        return complete(irp, statuses_.badPort, 0);
    }
    const PhysicalDevice *device = children_.at(parameters.ConnectionIndex);
    if (device == nullptr) {
        return complete(irp, statuses_.emptyPortCycle, 0);
    }
    cyclePort_(device->object());
    if (lengths.OutputBufferLength < sizeof(parameters)) {
        return complete(irp, STATUS_SUCCESS, 0);
    }
    parameters.StatusReturned = 0;
    std::memcpy(irp->AssociatedIrp.SystemBuffer, &parameters, sizeof(parameters));
    return complete(irp, STATUS_SUCCESS, sizeof(parameters));
}

} // namespace sim::machine
