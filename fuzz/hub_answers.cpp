// What a hub answers about one device: descriptors of any content, requests that fail, answers that are short or lie.

#include "fuzz/model/decision.h"
#include "fuzz/support/input.h"
#include "fuzz/support/living_machine.h"
#include "fuzz/support/require.h"
#include "simulator/machine/usb_device.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace fuzz {

namespace {

using Bytes = std::vector<std::uint8_t>;

sim::HubAnswer readAnswer(Input &input) {
    constexpr std::array<NTSTATUS, 4> failures = {STATUS_UNSUCCESSFUL, STATUS_DEVICE_NOT_CONNECTED,
                                                  STATUS_BUFFER_TOO_SMALL, STATUS_INVALID_PARAMETER};
    sim::HubAnswer answer;
    const std::uint8_t how = input.byte();
    if ((how & 1) != 0) {
        answer.failure = failures[how >> 4 & 3];
    }
    if ((how & 2) != 0) {
        answer.shortenTo = (how & 8) != 0 ? input.number() : input.byte();
    }
    if ((how & 4) != 0) {
        answer.replace = input.data();
    }
    return answer;
}

std::u16string readText(Input &input) {
    std::u16string text = textOf(input.bytes(input.byte()));
    return text.substr(0, 126);
}

sim::UsbDescriptors readDescriptors(Input &input) {
    sim::UsbDescriptors usb;
    usb.vendorId = input.word();
    usb.productId = input.word();
    usb.release = input.word();
    usb.manufacturerIndex = input.byte() & 7;
    usb.productIndex = input.byte() & 7;
    usb.serialIndex = input.byte() & 7;
    usb.configurationCount = input.byte() & 1;
    usb.interfaceCount = input.byte();
    usb.languages.resize(input.byte() & 3);
    for (std::uint16_t &language : usb.languages) {
        language = input.word();
    }
    const std::uint8_t strings = input.byte();
    for (std::uint8_t index = 1; index < 8; ++index) {
        if ((strings >> index & 1) != 0) {
            usb.strings[index] = readText(input);
        }
    }
    usb.answersLater = (strings & 1) != 0;
    const std::uint8_t answers = input.byte();
    const auto answer = [&](unsigned bit) { return (answers >> bit & 1) != 0 ? readAnswer(input) : sim::HubAnswer(); };
    usb.connectionInformation = answer(0);
    usb.configurationDescriptor = answer(1);
    usb.languageList = answer(2);
    for (unsigned bit = 3; bit < 8; ++bit) {
        if ((answers >> bit & 1) != 0) {
            const std::uint8_t index = 1 + input.byte() % 7;
            usb.stringAnswers[index] = readAnswer(input);
        }
    }
    return usb;
}

/// What lies in the driver's buffer of `room` zeroes after the answer; nothing when the request failed.
std::optional<Bytes> received(std::optional<Bytes> sent, const sim::HubAnswer *answer, std::size_t room) {
    if (answer != nullptr && answer->failure) {
        return std::nullopt;
    }
    if (answer != nullptr && answer->replace) {
        sent = answer->replace;
    }
    if (!sent) {
        return std::nullopt;
    }
    if (answer != nullptr && answer->shortenTo && *answer->shortenTo < sent->size()) {
        sent->resize(*answer->shortenTo);
    }
    sent->resize(std::min(sent->size(), room));
    sent->resize(room);
    return sent;
}

std::uint16_t wordAt(const Bytes &bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

Bytes textDescriptor(std::u16string_view text) {
    Bytes bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

/// Characters behind the two bytes of header, to the first NUL or the last whole one.
std::u16string textIn(const Bytes &descriptor) {
    const std::u16string text = textOf(Bytes(descriptor.begin() + 2, descriptor.end()));
    return text.substr(0, text.find(u'\0'));
}

std::u16string stringOf(const sim::UsbDescriptors &usb, std::uint8_t index) {
    constexpr std::size_t room = 257;
    if (index == 0) {
        return {};
    }
    const auto list =
        received(textDescriptor({reinterpret_cast<const char16_t *>(usb.languages.data()), usb.languages.size()}),
                 &usb.languageList, room);
    const std::u16string languages = list ? textIn(*list) : u"";
    if (languages.empty()) {
        return {};
    }
    const auto known = usb.strings.find(index);
    const bool told =
        known != usb.strings.end() && std::count(usb.languages.begin(), usb.languages.end(), languages[0]);
    const auto answer = usb.stringAnswers.find(index);
    const auto bytes = received(told ? std::optional(textDescriptor(known->second)) : std::nullopt,
                                answer == usb.stringAnswers.end() ? nullptr : &answer->second, room);
    std::u16string text = bytes ? textIn(*bytes) : u"";
    text.erase(text.find_last_not_of(u' ') + 1);
    return text;
}

/// The message as far as a hub's answers make it.
struct Told {
    bool filled = false;
    std::uint32_t vendorId = 0;
    std::uint32_t productId = 0;
    std::uint16_t release = 0;
    std::u16string manufacturer;
    std::u16string product;
    std::u16string serial;
    std::uint32_t interfaceNumber = 0;
    std::uint32_t interfaceCount = 0;
};

Told expect(const sim::UsbDescriptors &usb, const Bytes &deviceDescriptor) {
    Told told;
    Bytes connection = deviceDescriptor;
    connection.resize(31); // what follows the descriptor does not matter here
    const auto device = received(connection, &usb.connectionInformation, 31);
    std::optional<Bytes> sent;
    if (usb.configurationCount > 0) {
        sent = Bytes{9, 2, 0, 0, usb.interfaceCount, 1, 0, 0x80, 50};
    }
    const auto configuration = received(sent, &usb.configurationDescriptor, 9);
    if (!device || !configuration) {
        return told;
    }
    told.filled = true;
    told.vendorId = wordAt(*device, 8);
    told.productId = wordAt(*device, 10);
    told.release = wordAt(*device, 12);
    told.manufacturer = stringOf(usb, (*device)[14]);
    told.product = stringOf(usb, (*device)[15]);
    told.serial = stringOf(usb, (*device)[16]);
    told.interfaceCount = (*configuration)[4];
    told.interfaceNumber = told.interfaceCount == 1 ? 0 : 0xFFFFFFFF;
    return told;
}

template<std::size_t N>
void requireText(const wchar_t (&field)[N], std::u16string_view expected, const char *what) {
    const std::u16string_view all(reinterpret_cast<const char16_t *>(field), N);
    const std::size_t end = all.find(u'\0');
    require(end != std::u16string_view::npos, std::string(what) + " ends");
    require(all.substr(0, end) == expected.substr(0, N - 1), std::string(what) + " is what the device told");
    require(all.find_first_not_of(u'\0', end) == std::u16string_view::npos,
            std::string(what) + " is zero behind its end");
}

std::u16string hexText(std::uint16_t number) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%x", number);
    return {digits, digits + std::strlen(digits)};
}

Bytes deviceDescriptor(const sim::UsbDescriptors &usb) {
    const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word); };
    const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); };
    return {18,
            1,
            0,
            2,
            0,
            0,
            0,
            64,
            low(usb.vendorId),
            high(usb.vendorId),
            low(usb.productId),
            high(usb.productId),
            low(usb.release),
            high(usb.release),
            usb.manufacturerIndex,
            usb.productIndex,
            usb.serialIndex,
            usb.configurationCount};
}

void run(Input input) {
    LivingMachine &machine = LivingMachine::instance();
    const std::uint8_t flags = input.byte();
    machine.deleteParameters();
    machine.setLogging((flags & 7) == 7);
    machine.registry().setString(sim::Machine::parametersKey(), u"BlockedCompatibleIds", u"Class_08");
    machine.registry().setMultiString(sim::Machine::parametersKey(), u"AllowedHardwareIds",
                                      {u"VID_0781&PID_5581\\A*", u"*\\?"});
    machine.registry().setMultiString(sim::Machine::parametersKey(), u"ReadOnlyHardwareIds", {u"*\\*0"});
    sim::DeviceDescription device = sim::usbFlashDrive("device", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", {}});
    device.children.clear();
    device.usb = readDescriptors(input);

    const Told told = expect(*device.usb, deviceDescriptor(*device.usb));
    DeviceFacts facts;
    facts.serial = told.serial.substr(0, 127);
    for (const std::u16string &id : *device.hardwareIds) {
        facts.hardwareIds += (facts.hardwareIds.empty() ? u"" : std::u16string(1, u'\0')) + id;
    }
    for (const std::u16string &id : *device.compatibleIds) {
        facts.compatibleIds += (facts.compatibleIds.empty() ? u"" : std::u16string(1, u'\0')) + id;
    }
    const RuleLists rules{{u"CLASS_08"}, {u"VID_0781&PID_5581\\A*", u"*\\?"}, {u"*\\*0"}};
    const Decision decision = decide(rules, {}, facts);

    const Outcome outcome = machine.plug(device);
    require(outcome.filter.has_value(), "whatever a hub answers, the device is judged");
    requireEqual<ULONG>(outcome.filter->mode, decision.mode, "the mode");
    requireEqual<ULONG>(outcome.filter->ruleType, decision.ruleType, "the rule type");
    requireEqual<ULONG>(outcome.problemCode, decision.mode == 1 ? 29 : 0, "the problem code");
    const ServiceMessage &message = outcome.filter->message;
    if (!told.filled) {
        requireEqual<unsigned>(message.deviceType, 0, "the device type");
        requireText(message.serialNumber, u"", "the serial number");
    } else {
        requireEqual<unsigned>(message.deviceType, 1, "the device type");
        requireEqual<unsigned>(message.vendorId, told.vendorId, "the vendor id");
        requireEqual<unsigned>(message.productId, told.productId, "the product id");
        requireText(message.release, hexText(told.release), "the release");
        requireText(message.serialNumber, told.serial, "the serial number");
        requireText(message.deviceName, told.product, "the product");
        requireText(message.manufacturer, told.manufacturer, "the manufacturer");
        requireEqual<unsigned>(message.interfaceCount, told.interfaceCount == 1 ? 1 : told.interfaceCount,
                               "the interface count");
        requireEqual<unsigned>(message.interfaceNumber, told.interfaceNumber, "the interface number");
        requireText(message.identity, idsOf(facts.hardwareIds).front() + u"\\" + told.serial, "the identity");
    }
    if ((flags & 0x10) != 0) {
        std::vector<std::uint8_t> records(788 * 2);
        machine.control(IOCTL_GET_PROCESSED_DEVICES, records);
    }
    machine.endInput(rules.count());
}

} // namespace

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::run(fuzz::Input(data, size));
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::LivingMachine::instance();
    return 0;
}
