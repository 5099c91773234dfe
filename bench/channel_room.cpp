#include "channel_room.h"

#include "driver/driver_context.h"
#include "linked_driver.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/usb_device.h"
#include "support/text.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

constexpr unsigned portsOfHub = 100;

sim::MachineOptions withLinkedDriver() {
    sim::MachineOptions options;
    options.hubDrivers = {u"USBHUB3", u"USBHUB"};
    options.openImage = openLinkedDriver;
    return options;
}

} // namespace

ChannelRoom::ChannelRoom(std::uint32_t callbackMode, unsigned devices)
    : machine(withLinkedDriver()), devices_(devices) {
    machine.presetClassFilters();
    sim::Registry &registry = machine.kernel().registry;
    registry.setDword(sim::Machine::parametersKey(), u"CallbackMode", callbackMode);
    registry.setString(sim::Machine::parametersKey(), u"BlockedCompatibleIds", u"Class_ff");
    setRules(1);
    demand(machine.loadDriver(), "loading the driver");
    machine.plugControlNode();
    plugDevices();
    demand(service.open(u"\\\\.\\Tarvenholt Myrtelhaven", handle_), "opening the control device");
}

ChannelRoom::~ChannelRoom() {
    service.die();
    machine.unloadDriver();
}

const ControlDevice &ChannelRoom::control() const {
    return *getDriverContext().controlDevice;
}

sim::UserProcess::Io ChannelRoom::parkForNotification() {
    return service.begin(handle_, {IOCTL_WAIT_NOTIFICATION, {}, sizeof(NotificationInfo)});
}

sim::UserProcess::Io ChannelRoom::parkForQuestion() {
    return service.begin(handle_, {IOCTL_WAIT_CALLBACK, {}, MYRTELHAVEN_CALLBACK_BYTES});
}

void ChannelRoom::reply(std::uint64_t requestId, std::uint32_t answer) {
    const CallbackReply made{requestId, answer, 0};
    std::vector<std::uint8_t> bytes(sizeof(made));
    std::memcpy(bytes.data(), &made, sizeof(made));
    demand(service.control(handle_, {IOCTL_CALLBACK_REPLY, std::move(bytes), 0})->status(), "reply");
}

void ChannelRoom::plugDevices() {
    sim::DeviceNode *hub = nullptr;
    for (unsigned number = 0; number < devices_; ++number) {
        if (number % portsOfHub == 0) {
            hub = &machine.plug(sim::usbHub(fmt::format("hub {}", number / portsOfHub),
                                            {0x05E3, 0x0610, 0x9226, u"GenesysLogic", u"Hub", {}}, portsOfHub));
        }
        const std::string serial = fmt::format("{:08}", number);
        machine.plug(sim::usbVendorDevice(serial, {0x04B4, 0x8613, 0x0100, u"Maker", u"Board", sim::toUtf16(serial)}),
                     hub);
    }
}

void ChannelRoom::setRules(unsigned count) {
    std::vector<std::u16string> rules;
    for (unsigned number = 1; number < count; ++number) {
        rules.push_back(sim::toUtf16(fmt::format("VID_{:04X}&PID_{:04X}\\*", 0x1000 + number % 251, number)));
    }
    rules.push_back(u"*VID_04B4*");
    machine.kernel().registry.setMultiString(sim::Machine::parametersKey(), u"AllowedHardwareIds", rules);
}

void ChannelRoom::list() {
    const std::size_t bytes = devices_ * sizeof(ProcessedDeviceInfo);
    // One record more: a hub that comes last wants room too, though it is given none.
    const auto listed =
        service.control(handle_, {IOCTL_GET_PROCESSED_DEVICES, {}, bytes + sizeof(ProcessedDeviceInfo)});
    if (listed->status() != STATUS_SUCCESS || listed->information() != bytes) {
        throw std::runtime_error(fmt::format("listing: {} bytes, 0x{:08x}", listed->information(),
                                             static_cast<std::uint32_t>(listed->status())));
    }
}

void ChannelRoom::rescan() {
    demand(service.control(handle_, {IOCTL_RESCAN_DEVICES, {}, 0})->status(), "rescan");
}

ServiceMessage messageOfDevice(std::uint32_t mode) {
    ServiceMessage message{};
    message.deviceType = MYRTELHAVEN_DEVICE_TYPE_USB;
    message.mode = mode;
    copyToField(message.deviceName, literal(L"Ultra"));
    copyToField(message.description, literal(L"Ultra"));
    return message;
}

} // namespace bench
