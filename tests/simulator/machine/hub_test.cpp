#include "test_driver.h"

#include "simulator/kernel/kernel.h"
#include "simulator/machine/usb_device.h"

#include <usbioctl.h>

#include <gtest/gtest.h>

#include <cstring>

namespace sim::machinetest {
namespace {

struct DescriptorAnswer {
    NTSTATUS status;
    ULONG_PTR information;
    std::vector<std::uint8_t> data;
};

struct Hub : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};
    DeviceNode &hub = machine.rootHub();

    static DeviceDescription stick() {
        return usbFlashDrive("stick", {0x0781, 0x5581, 0x0123, u"SanDisk", u"Ultra", u"A200"});
    }

    USB_NODE_CONNECTION_INFORMATION connection(ULONG port, ControlResult *result = nullptr) {
        USB_NODE_CONNECTION_INFORMATION information{};
        information.ConnectionIndex = port;
        const ControlResult got = control(hub.physicalDevice(), IOCTL_USB_GET_NODE_CONNECTION_INFORMATION, &information,
                                          sizeof(information), sizeof(information));
        if (result != nullptr) {
            *result = got;
        }
        return information;
    }

    DescriptorAnswer descriptor(ULONG port, UCHAR type, UCHAR index, USHORT language, USHORT length) {
        std::vector<std::uint8_t> buffer(sizeof(USB_DESCRIPTOR_REQUEST) + length);
        USB_DESCRIPTOR_REQUEST request{};
        request.ConnectionIndex = port;
        request.SetupPacket.wValue = static_cast<USHORT>(type << 8 | index);
        request.SetupPacket.wIndex = language;
        request.SetupPacket.wLength = length;
        std::memcpy(buffer.data(), &request, sizeof(request));
        const auto size = static_cast<ULONG>(buffer.size());
        const ControlResult result =
            control(hub.physicalDevice(), IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION, buffer.data(), size, size);
        return {result.status, result.information, {buffer.begin() + sizeof(request), buffer.end()}};
    }

    DescriptorAnswer text(UCHAR index, USHORT language) {
        return descriptor(1, USB_STRING_DESCRIPTOR_TYPE, index, language, 255);
    }
};

/// By value: the field is packed.
USB_CONNECTION_STATUS statusOf(const USB_NODE_CONNECTION_INFORMATION &information) {
    USB_CONNECTION_STATUS status{};
    std::memcpy(&status, reinterpret_cast<const std::uint8_t *>(&information) + 0x1F, sizeof(status));
    return status;
}

std::u16string textOf(const DescriptorAnswer &answer) {
    std::u16string result((answer.information - sizeof(USB_DESCRIPTOR_REQUEST) - 2) / 2, u'\0');
    std::memcpy(result.data(), answer.data.data() + 2, 2 * result.size());
    return result;
}

TEST_F(Hub, TellsTheDeviceDescriptor) {
    machine.plug(stick());
    ControlResult result{};
    const USB_NODE_CONNECTION_INFORMATION information = connection(1, &result);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 35U);
    EXPECT_EQ(information.DeviceDescriptor.idVendor, 0x0781);
    EXPECT_EQ(information.DeviceDescriptor.idProduct, 0x5581);
    EXPECT_EQ(information.DeviceDescriptor.bcdDevice, 0x0123);
    EXPECT_EQ(information.DeviceDescriptor.iSerialNumber, 3);
    EXPECT_EQ(statusOf(information), DeviceConnected);
    EXPECT_EQ(information.CurrentConfigurationValue, 1);
    EXPECT_FALSE(information.DeviceIsHub);
}

TEST_F(Hub, AnEmptyPortIsASuccessWithoutDevice) {
    ControlResult result{};
    const USB_NODE_CONNECTION_INFORMATION information = connection(2, &result);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(statusOf(information), NoDeviceConnected);
    EXPECT_EQ(information.DeviceDescriptor.bLength, 0);
    EXPECT_EQ(information.DeviceDescriptor.idVendor, 0);
}

TEST_F(Hub, RefusesPortsItDoesNotHave) {
    ControlResult result{};
    connection(0, &result);
    EXPECT_EQ(result.status, STATUS_INVALID_PARAMETER);
    connection(17, &result);
    EXPECT_EQ(result.status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(descriptor(17, 2, 0, 0, 9).status, STATUS_INVALID_PARAMETER);
}

TEST_F(Hub, RefusesShortBuffers) {
    machine.plug(stick());
    USB_NODE_CONNECTION_INFORMATION information{};
    information.ConnectionIndex = 1;
    EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_GET_NODE_CONNECTION_INFORMATION, &information, 34, 35).status,
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_GET_NODE_CONNECTION_INFORMATION, &information, 35, 34).status,
              STATUS_BUFFER_TOO_SMALL);
    USB_DESCRIPTOR_REQUEST request{};
    request.ConnectionIndex = 1;
    request.SetupPacket.wValue = 0x0200;
    request.SetupPacket.wLength = 9;
    EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION, &request, sizeof(request),
                      sizeof(request))
                  .status,
              STATUS_BUFFER_TOO_SMALL);
}

TEST_F(Hub, OnlyNineBytesOfTheConfigurationMayBeAsked) {
    DeviceDescription keyboard = usbKeyboard("keyboard", {0xC0F4, 0x04E0});
    machine.plug(keyboard);
    const DescriptorAnswer nine = descriptor(1, USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0, 9);
    EXPECT_EQ(nine.status, STATUS_SUCCESS);
    EXPECT_EQ(nine.information, 21U);
    EXPECT_EQ(nine.data[4], 2); // bNumInterfaces
    EXPECT_EQ(nine.data[2], 27);
    const DescriptorAnswer all = descriptor(1, USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0, 100);
    EXPECT_EQ(all.information, 12U + 27U);
    EXPECT_EQ(all.data[9 + 5], 0x03); // bInterfaceClass of the first interface
    EXPECT_EQ(all.data[18 + 6], 0x00);
    EXPECT_EQ(descriptor(1, USB_CONFIGURATION_DESCRIPTOR_TYPE, 1, 0, 9).status, STATUS_UNSUCCESSFUL);
}

TEST_F(Hub, StringsComeInTheirLanguages) {
    DeviceDescription description = stick();
    description.usb->languages = {0x0409, 0x0407};
    machine.plug(description);
    const DescriptorAnswer languages = text(0, 0);
    EXPECT_EQ(languages.information, 12U + 6U);
    EXPECT_EQ(languages.data[0], 6);
    EXPECT_EQ(languages.data[2] | languages.data[3] << 8, 0x0409);
    EXPECT_EQ(textOf(text(3, 0x0409)), u"A200");
    EXPECT_EQ(textOf(text(3, 0x0407)), u"A200");
    EXPECT_EQ(text(3, 0x0411).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(text(9, 0x0409).status, STATUS_UNSUCCESSFUL);
}

TEST_F(Hub, TheSetupPacketBecomesAGetDescriptor) {
    machine.plug(stick());
    std::uint8_t buffer[30] = {1, 0, 0, 0, 0x55, 0x66, 0, 1, 0, 0, 18, 0};
    const ControlResult result =
        control(hub.physicalDevice(), IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION, buffer, 30, 30);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 30U);
    EXPECT_EQ(buffer[4], 0x80);
    EXPECT_EQ(buffer[5], 0x06);
    EXPECT_EQ(buffer[12], 18);
}

TEST_F(Hub, AnswersAsADescriptionWants) {
    DeviceDescription description = stick();
    description.usb->stringAnswers[1].failure = STATUS_DEVICE_NOT_CONNECTED;
    description.usb->stringAnswers[2].shortenTo = 4;
    description.usb->stringAnswers[3].replace = std::vector<std::uint8_t>{0xFF, 3, 'x', 0};
    description.usb->stringAnswers[9].replace = std::vector<std::uint8_t>{2, 3};
    description.usb->languageList.failure = STATUS_UNSUCCESSFUL;
    description.usb->configurationDescriptor.shortenTo = 0;
    machine.plug(description);
    EXPECT_EQ(text(1, 0x0409).status, STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(text(1, 0x0409).information, 0U);
    EXPECT_EQ(text(2, 0x0409).information, 16U);
    EXPECT_EQ(text(2, 0x0409).data[0], 12); // bLength still tells the whole string
    EXPECT_EQ(text(3, 0x0409).data[0], 0xFF);
    EXPECT_EQ(text(3, 0x0409).information, 16U);
    EXPECT_EQ(text(9, 0x0409).status, STATUS_SUCCESS);
    EXPECT_EQ(text(0, 0).status, STATUS_UNSUCCESSFUL);
    const DescriptorAnswer configuration = descriptor(1, USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0, 9);
    EXPECT_EQ(configuration.status, STATUS_SUCCESS);
    EXPECT_EQ(configuration.information, 12U);
}

TEST_F(Hub, ConnectionInformationCanFailOrLie) {
    DeviceDescription failing = stick();
    failing.usb->connectionInformation.failure = STATUS_NO_SUCH_DEVICE;
    machine.plug(failing);
    DeviceDescription lying = usbVendorDevice("liar", {1, 2});
    lying.usb->connectionInformation.shortenTo = 18;
    machine.plug(lying);
    ControlResult result{};
    connection(1, &result);
    EXPECT_EQ(result.status, STATUS_NO_SUCH_DEVICE);
    connection(2, &result);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 22U);
}

TEST_F(Hub, AnswersWhileTheDevicesOwnStackIsBuilt) {
    machine.presetClassFilters();
    UCHAR configured = 0xFF;
    USHORT vendor = 0;
    driver.onAdd = [&](PDEVICE_OBJECT) {
        const USB_NODE_CONNECTION_INFORMATION information = connection(1);
        configured = information.CurrentConfigurationValue;
        vendor = information.DeviceDescriptor.idVendor;
    };
    machine.plug(usbVendorDevice("vendor", {0x1234, 0x5678}));
    EXPECT_EQ(vendor, 0x1234);
    EXPECT_EQ(configured, 0);
}

TEST_F(Hub, MayAnswerLater) {
    machine.presetClassFilters();
    DeviceDescription description = stick();
    description.usb->answersLater = true;
    description.usb->stringAnswers[1].failure = STATUS_DEVICE_NOT_CONNECTED;
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(connection(1).DeviceDescriptor.idVendor, 0x0781);
    EXPECT_EQ(textOf(text(3, 0x0409)), u"A200");
    EXPECT_EQ(text(1, 0x0409).status, STATUS_DEVICE_NOT_CONNECTED);
    machine.unplug(node);
}

TEST_F(Hub, CyclingAPortMakesANewDevice) {
    machine.presetClassFilters();
    DeviceNode &before = machine.plug(stick());
    PDEVICE_OBJECT old = before.physicalDevice();
    ObReferenceObject(old);
    USB_CYCLE_PORT_PARAMS parameters{1, 0xFFFF};
    const ControlResult result =
        control(hub.physicalDevice(), IOCTL_USB_HUB_CYCLE_PORT, &parameters, sizeof(parameters), sizeof(parameters));
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(parameters.StatusReturned, 0U);
    EXPECT_TRUE(before.started()); // the request is back before the device goes
    machine.settle();
    EXPECT_FALSE(before.started());
    DeviceNode *after = machine.find("stick");
    ASSERT_NE(after, nullptr);
    EXPECT_TRUE(after->started());
    EXPECT_NE(after->physicalDevice(), old);
    EXPECT_NE(machine.find("stick disk"), nullptr);
    EXPECT_EQ(connection(1).DeviceDescriptor.idVendor, 0x0781);
    ObDereferenceObject(old);
}

TEST_F(Hub, CyclingAnEmptyPortFails) {
    USB_CYCLE_PORT_PARAMS parameters{3, 0};
    EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_HUB_CYCLE_PORT, &parameters, 8, 0).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_HUB_CYCLE_PORT, &parameters, 4, 0).status,
              STATUS_BUFFER_TOO_SMALL);
}

TEST_F(Hub, RequestsTravelThroughTheHubsStack) {
    machine.presetClassFilters();
    DeviceDescription description = usbHub("filtered", {0x05E3, 0x0608});
    description.upperFilters = {u"AboveTheHub"};
    DeviceNode &filtered = machine.plug(description);
    EXPECT_EQ(filtered.stack().size(), 4U);
    machine.plug(stick(), &filtered);
    USB_NODE_CONNECTION_INFORMATION information{};
    information.ConnectionIndex = 1;
    EXPECT_EQ(
        control(filtered.physicalDevice(), IOCTL_USB_GET_NODE_CONNECTION_INFORMATION, &information, 35, 35).status,
        STATUS_SUCCESS);
    EXPECT_EQ(information.DeviceDescriptor.idVendor, 0x0781);
    EXPECT_EQ(connection(1).DeviceIsHub, TRUE);
}

TEST_F(Hub, OtherRequestsAreRefused) {
    ULONG nothing = 0;
    EXPECT_EQ(control(hub.physicalDevice(), CTL_CODE(FILE_DEVICE_USB, 999, 0, 0), &nothing, 4, 4).status,
              STATUS_INVALID_DEVICE_REQUEST);
}

} // namespace
} // namespace sim::machinetest
