// Registry values of any type, length and content, one device under them. README.md gives the layout.

#include "fuzz/model/decision.h"
#include "fuzz/support/input.h"
#include "fuzz/support/living_machine.h"
#include "fuzz/support/require.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <array>
#include <map>

namespace fuzz {

namespace {

constexpr std::array<const char16_t *, 7> parameters = {u"BlockedCompatibleIds",
                                                        u"AllowedHardwareIds",
                                                        u"ReadOnlyHardwareIds",
                                                        u"CallbackMode",
                                                        u"CallbackTimeout",
                                                        u"CallbackFallbackAction",
                                                        u"LogLevel"};
constexpr std::size_t filterLists = 9;
constexpr std::uint32_t absent = 0xFE; ///< as a type: the value is not there
constexpr std::u16string_view ourName = u"TarvenholtMyrtelhavenDriver";

using Values = std::map<std::size_t, std::optional<RawValue>>; ///< by the byte that names them

/// A device and the facts by which it is judged.
struct Candidate {
    sim::DeviceDescription device;
    DeviceFacts facts;
};

std::u16string joined(const std::optional<std::vector<std::u16string>> &ids) {
    std::u16string list;
    for (const std::u16string &id : ids.value_or(std::vector<std::u16string>{})) {
        list += (list.empty() ? u"" : std::u16string(1, u'\0')) + id;
    }
    return list;
}

Candidate candidate(sim::DeviceDescription device) {
    const sim::UsbDescriptors &usb = *device.usb;
    Candidate result{device, {joined(device.hardwareIds), joined(device.compatibleIds), {}, false, false}};
    if (usb.serialIndex != 0) {
        result.facts.serial = usb.strings.at(usb.serialIndex);
    }
    result.facts.portableClass = device.classGuid == sim::machine::setup::portable.guid;
    result.device.security = "D:P(A;;GA;;;SY)(A;;GA;;;WD)";
    result.device.children.clear();
    return result;
}

const std::vector<Candidate> &candidates() {
    using namespace sim;
    static const std::vector<Candidate> all = {
        candidate(usbFlashDrive("device", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"})),
        candidate(usbMtpPhone("device", {0x18D1, 0x4EE1, 0x0440, u"Google", u"Pixel 6", u"8A2X0RDFR"})),
        candidate(usbVendorDevice("device", {0x04B4, 0x8613, 0xA001, {}, u"EZ-USB FX2", {}})),
        candidate(usbDevice("device", {0x04A9, 0x31BF, 0x0002, u"Canon Inc.", u"Digital Camera", u"1234"},
                            {0x06, 0x01, 0x01}, u"WUDFRd", std::u16string(machine::setup::portable.guid))),
        candidate(usbDevice("device", {0x046D, 0xC077, 0x7200, u"Logitech", u"USB Optical Mouse", {}},
                            {0x03, 0x01, 0x02}, u"HidUsb", std::u16string(machine::setup::humanInterface.guid))),
        candidate(usbSmartCardReader("device", {0x076B, 0x3031, 0x0509, u"HID Global", u"OMNIKEY 3x21", {}})),
        candidate(usbNetworkAdapter("device", {0x0525, 0xA4A2, 0x0404, u"Linux", u"RNDIS Gadget", u"0"})),
        candidate(usbUaspDisk("device", {0x04E8, 0x61F5, 0x0100, u"Samsung", u"Portable SSD T5", u"1234567ABCDE"})),
    };
    return all;
}

std::vector<std::uint8_t> bytesOf(std::u16string_view text) {
    std::vector<std::uint8_t> bytes;
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

/// Values until the input ends: the byte that names it, its type in a byte (0xFF: in the number behind it), its data.
Values readValues(Input &input) {
    Values values;
    values[0] = RawValue{REG_SZ, bytesOf(u"Class_08 Class_06 Class_ff MS_COMP_MTP")};
    while (!input.empty()) {
        const std::size_t name = input.byte() % (parameters.size() + filterLists);
        std::uint32_t type = input.byte();
        type = type == 0xFF ? input.number() : type;
        values[name] = type == absent ? std::nullopt : std::optional(RawValue{type, input.data()});
    }
    return values;
}

struct FilterValue {
    std::u16string key;
    std::u16string name;
};

FilterValue filterValue(std::size_t index) {
    const sim::machine::FilterList &list = sim::machine::driverFilterLists()[index];
    return {sim::Machine::classKey(list.setupClass.guid), std::u16string(list.valueName)};
}

/// What a start of the control node makes of a class filter list; unchanged where the list can't be read.
std::optional<RawValue> withOurName(const std::optional<RawValue> &before) {
    const auto strings = before ? stringsOf(*before) : std::vector<std::u16string>{};
    if (!strings) {
        return before;
    }
    std::u16string list;
    bool present = false;
    for (const std::u16string &name : *strings) {
        present = present || sim::equalNoCase(name, ourName);
        list += name + u'\0';
    }
    if (!present) {
        list += std::u16string(ourName) + u'\0';
    }
    return RawValue{REG_MULTI_SZ, bytesOf(list + u'\0')};
}

/// Starts the driver under the values, looks at what it made of those that only a start reads, and leaves the class
/// filter lists as they are with an installed driver.
void restart(LivingMachine &machine, const Values &values) {
    machine.unload();
    for (std::size_t index = 0; index < filterLists; ++index) {
        const FilterValue value = filterValue(index);
        const auto given = values.find(parameters.size() + index);
        machine.registry().deleteValue(value.key, value.name);
        if (given != values.end() && given->second) {
            machine.registry().setValue(value.key, value.name, given->second->type, given->second->data);
        }
    }
    machine.load();
    for (std::size_t index = 0; index < filterLists; ++index) {
        const FilterValue value = filterValue(index);
        const auto given = values.find(parameters.size() + index);
        const auto expected = withOurName(given == values.end() ? std::nullopt : given->second);
        const auto found = machine.registry().value(value.key, value.name);
        require(found.has_value() == expected.has_value() &&
                    (!found || (found->type == expected->type && found->data == expected->data)),
                "a start repairs the class filter list " + sim::toUtf8(value.key));
        machine.registry().deleteValue(value.key, value.name);
    }
    machine.machine().presetClassFilters();
}

std::optional<RawValue> valueOf(const Values &values, std::size_t name) {
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : found->second;
}

void checkSettings(DriverContext &driver, const Values &values) {
    requireEqual<ULONG>(driver.callbackMode, numberOf(valueOf(values, 3), 0), "CallbackMode");
    requireEqual<ULONG>(driver.callbackTimeout, numberOf(valueOf(values, 4), 30), "CallbackTimeout");
    requireEqual<ULONG>(driver.callbackFallbackAction, numberOf(valueOf(values, 5), 0), "CallbackFallbackAction");
}

void checkOutcome(const Outcome &outcome, const Decision &decision) {
    require(outcome.filter.has_value(), "the device has a filter");
    requireEqual<ULONG>(outcome.filter->filterable, decision.filterable, "filterable");
    requireEqual<ULONG>(outcome.filter->mode, decision.mode, "the mode");
    requireEqual<ULONG>(outcome.filter->ruleType, decision.ruleType, "the rule type");
    const bool blocked = decision.mode == 1;
    requireEqual<ULONG>(outcome.problemCode, blocked ? 29 : 0, "the problem code");
    require(outcome.started == !blocked, "a device runs unless it is blocked");
    require(outcome.hidden == blocked, "a device is hidden when it is blocked");
    require(outcome.deniesWriting == decision.denyWriting, "the access list denies writing when it shall");
}

void run(Input input) {
    LivingMachine &machine = LivingMachine::instance();
    const std::uint8_t flags = input.byte();
    const bool startsAnew = (flags & 1) != 0;
    const Candidate &one = candidates()[flags >> 1 & 7];
    const Values values = readValues(input);

    machine.deleteParameters();
    for (std::size_t name = 0; name < parameters.size(); ++name) {
        if (const auto value = valueOf(values, name)) {
            machine.setParameter(parameters[name], value->type, value->data);
        }
    }
    if (startsAnew) {
        restart(machine, values);
        checkSettings(machine.driver(), values);
    } else {
        machine.reloadLogLevel();
    }
    requireEqual<LONG>(machine.driver().logger.level, static_cast<LONG>(numberOf(valueOf(values, 6), 0)),
                       "the log level");

    const RuleLists rules = rulesOf({valueOf(values, 0), valueOf(values, 1), valueOf(values, 2)});
    const DriverContext &driver = machine.driver();
    const CallbackSettings settings{driver.callbackMode, driver.callbackFallbackAction};
    checkOutcome(machine.plug(one.device), decide(rules, settings, one.facts));
    machine.endInput(rules.count());
    if (startsAnew) {
        machine.deleteParameters();
        machine.unload();
        machine.load();
    }
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
