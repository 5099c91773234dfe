// Ids and device properties: any bytes, any length, or a failing query, of a device at one of four places.

#include "fuzz/model/decision.h"
#include "fuzz/support/input.h"
#include "fuzz/support/living_machine.h"
#include "fuzz/support/require.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <algorithm>
#include <array>
#include <map>

namespace fuzz {

namespace {

constexpr std::array<const char *, 14> properties = {
    "HardwareId", "CompatibleIds", "ClassGuid",        "EnumeratorName", "Service",      "BusReportedDeviceDesc",
    "DeviceDesc", "InstanceId",    "MatchingDeviceId", "FriendlyName",   "Manufacturer", "LocationInformation",
    "Address",    "Driver"};
constexpr std::array<NTSTATUS, 4> failures = {STATUS_OBJECT_NAME_NOT_FOUND, STATUS_INVALID_DEVICE_REQUEST,
                                              STATUS_INSUFFICIENT_RESOURCES, STATUS_BUFFER_TOO_SMALL};
constexpr std::u16string_view serial = u"A20054F50D478A23";

enum class Place { belowHub, functionOfComposite, withoutParent, belowRoot };

/// A property as the driver's reader gives it: nothing when it fails.
using Text = std::optional<std::u16string>;

Text read(const sim::RawProperty &raw) {
    if (raw.failure || raw.data.size() > 0xFFFF) {
        return std::nullopt; // a counted string holds no more
    }
    std::u16string text = textOf(raw.data);
    text.erase(text.find_last_not_of(u'\0') + 1);
    return text;
}

std::vector<std::uint8_t> terminated(std::u16string_view text) {
    std::vector<std::uint8_t> bytes;
    for (const char16_t unit : std::u16string(text) + u'\0') {
        bytes.push_back(static_cast<std::uint8_t>(unit));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

sim::DeviceDescription usualDevice() {
    sim::DeviceDescription device =
        sim::usbMtpPhone("device", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", std::u16string(serial)});
    device.security = "D:P(A;;GA;;;SY)(A;;GA;;;WD)";
    device.children.clear();
    return device;
}

std::u16string listText(const std::vector<std::u16string> &ids) {
    std::u16string list;
    for (const std::u16string &id : ids) {
        list += id + u'\0';
    }
    return list;
}

struct Subject {
    sim::DeviceDescription device = usualDevice();
    Place place = Place::belowHub;

    Text text(const char *name, std::u16string_view usual) const {
        const auto found = device.rawProperties.find(name);
        return found != device.rawProperties.end() ? read(found->second) : Text(usual);
    }
};

bool isComposite(const Text &compatibleIds, const Text &service) {
    if (compatibleIds) {
        for (const std::u16string &id : idsOf(*compatibleIds)) {
            if (withoutBus(id) == u"COMPOSITE") {
                return true;
            }
        }
    }
    return service && (sim::equalNoCase(*service, u"usbccgp") || sim::equalNoCase(*service, u"dg_ssudbus"));
}

struct Expected {
    enum class Kind { problem31, runsWithoutFilter, leftAlone, decided } kind = Kind::decided;
    Decision decision;
};

Expected expect(const Subject &subject, const RuleLists &rules) {
    using Kind = Expected::Kind;
    const sim::DeviceDescription usual = usualDevice();
    const auto withoutNuls = [](std::u16string text) {
        text.erase(text.find_last_not_of(u'\0') + 1);
        return text;
    };
    const Text hardwareIds = subject.text("HardwareId", withoutNuls(listText(*usual.hardwareIds)));
    const Text compatibleIds = subject.text("CompatibleIds", withoutNuls(listText(*usual.compatibleIds)));
    const Text classGuid = subject.text("ClassGuid", *usual.classGuid);
    if (!hardwareIds) {
        return {Kind::problem31, {}};
    }
    if (*hardwareIds == u"Tarvenholt\\Myrtelhaven") {
        return {Kind::runsWithoutFilter, {}};
    }
    if (subject.text("EnumeratorName", u"USB") != Text(u"USB")) {
        return {classGuid ? Kind::runsWithoutFilter : Kind::problem31, {}};
    }
    const std::u16string first = idsOf(*hardwareIds).front();
    if (withoutBus(first).starts_with(u"ROOT_HUB") || first == u"USB\\RESET_FAILURE") {
        return {Kind::leftAlone, {}};
    }
    const bool composite = isComposite(compatibleIds, subject.text("Service", *usual.service));
    const bool function =
        !composite && (subject.place == Place::functionOfComposite || matchesPattern(u"*&MI_??", first));
    if (subject.place == Place::withoutParent || (subject.place == Place::belowRoot && function) || !compatibleIds) {
        return {Kind::problem31, {}};
    }
    DeviceFacts facts{*hardwareIds, *compatibleIds, {}, composite, false};
    const bool hubKnowsIt =
        (subject.place == Place::belowHub && !function) || (subject.place == Place::functionOfComposite && function);
    facts.serial = hubKnowsIt ? serial : std::u16string_view();
    facts.portableClass = classGuid && sim::equalNoCase(*classGuid, u"{eec5ad98-8080-425f-922a-dabf3de3f69a}");
    return {Kind::decided, decide(rules, {}, facts)};
}

void check(const Outcome &outcome, const Expected &expected) {
    using Kind = Expected::Kind;
    require(outcome.asked, "the driver is asked");
    if (expected.kind == Kind::problem31) {
        requireEqual<ULONG>(outcome.problemCode, 31, "the problem code");
        require(!outcome.started, "a device that cannot be judged does not start");
        return;
    }
    const bool blocked = expected.kind == Kind::decided && expected.decision.mode == 1;
    requireEqual<ULONG>(outcome.problemCode, blocked ? 29 : 0, "the problem code");
    require(outcome.started == !blocked, "a device runs unless it is blocked");
    require(outcome.hidden == blocked, "a device is hidden when it is blocked");
    require(outcome.attached == (expected.kind != Kind::runsWithoutFilter), "a filter for what USB enumerated");
    if (!outcome.filter) {
        return;
    }
    const Decision none;
    const Decision &decision = expected.kind == Kind::decided ? expected.decision : none;
    requireEqual<ULONG>(outcome.filter->filterable, decision.filterable, "filterable");
    requireEqual<ULONG>(outcome.filter->mode, decision.mode, "the mode");
    requireEqual<ULONG>(outcome.filter->ruleType, decision.ruleType, "the rule type");
    require(outcome.deniesWriting == decision.denyWriting, "the access list denies writing when it shall");
    const auto ends = [](const auto &field) {
        return std::find(std::begin(field), std::end(field), 0) != std::end(field);
    };
    const ServiceMessage &message = outcome.filter->message;
    require(ends(message.description) && ends(message.identity) && ends(message.serialNumber) &&
                ends(message.deviceName) && ends(message.manufacturer) && ends(message.release),
            "every text of the message ends");
}

void setPolicy(LivingMachine &machine, std::uint8_t which, PolicyValues &values) {
    const auto list = [](std::u16string_view text) { return RawValue{REG_MULTI_SZ, terminated(text)}; };
    const std::u16string_view blocked[] = {u"Class_08 Class_06 Class_06&SubClass_01&Prot_01 MS_COMP_MTP", u"*",
                                           u"?* CLASS_??", u"USB *A*"};
    const std::u16string allowed[] = {listText({u"VID_1*"}), listText({u"*", u"X\\Y"}), listText({u"*A2005*"}),
                                      listText({u"VID_0781&PID_5581\\*"})};
    values.blocked = RawValue{REG_SZ, terminated(blocked[which & 3])};
    values.allowed = list(allowed[which >> 2 & 3]);
    values.readOnly = list(allowed[which >> 4 & 3]);
    machine.deleteParameters();
    machine.setParameter(u"BlockedCompatibleIds", values.blocked->type, values.blocked->data);
    machine.setParameter(u"AllowedHardwareIds", values.allowed->type, values.allowed->data);
    machine.setParameter(u"ReadOnlyHardwareIds", values.readOnly->type, values.readOnly->data);
}

void run(Input input) {
    LivingMachine &machine = LivingMachine::instance();
    const std::uint8_t flags = input.byte();
    PolicyValues values;
    setPolicy(machine, input.byte(), values);
    machine.setLogging((flags & 0x0C) == 0x0C);
    Subject subject;
    subject.place = static_cast<Place>(flags & 3);
    while (!input.empty()) {
        const std::uint8_t which = input.byte();
        sim::RawProperty raw;
        if ((which & 0x80) != 0) {
            raw.failure = failures[which >> 4 & 3];
        } else {
            raw.data = input.data();
        }
        subject.device.rawProperties[properties[(which & 0x0F) % properties.size()]] = raw;
    }
    sim::DeviceNode *parent = nullptr;
    if (subject.place == Place::functionOfComposite) {
        sim::DeviceDescription composite = sim::usbCompositeDevice(
            "composite", {0x1234, 0x5678, 0x0100, u"Maker", u"Both", std::u16string(serial)}, {});
        machine.plug(composite);
        parent = machine.machine().find("composite");
        require(parent->started(), "a composite device runs");
        subject.device.usb.reset();
        subject.device.address = 0;
        subject.device.instanceId = u"USB\\VID_1234&PID_5678&MI_00\\6&1";
    } else if (subject.place == Place::belowRoot) {
        parent = &machine.machine().rootNode();
        subject.device.address = 1;
    } else if (subject.place == Place::withoutParent) {
        subject.device.hasParent = false;
    }
    const RuleLists rules = rulesOf(values);
    const Outcome outcome = machine.plug(subject.device, parent);
    const Expected expected = expect(subject, rules);
    check(outcome, expected);
    if ((flags & 0x10) != 0) {
        std::vector<std::uint8_t> records(788 * (1 + (flags >> 5)));
        machine.control(IOCTL_GET_PROCESSED_DEVICES, records);
        std::vector<std::uint8_t> text(20480);
        machine.control(IOCTL_GET_NOT_USBHUB_DEVICES, text);
    }
    if ((flags & 0x40) != 0) {
        std::vector<std::uint8_t> none;
        machine.control(IOCTL_RESCAN_DEVICES, none);
        machine.machine().settle();
        if (sim::DeviceNode *node = machine.machine().find("device")) {
            const Outcome again = machine.outcomeOf(*node);
            require(again.problemCode == outcome.problemCode && again.started == outcome.started,
                    "a rescan under the same policy changes nothing");
        }
        machine.unplugAll();
        machine.control(IOCTL_RESCAN_DEVICES, none); // the register forgets what is gone
        machine.endInput();
        return;
    }
    if (outcome.filter && expected.kind == Expected::Kind::decided) {
        machine.endInput(rules.count());
    } else {
        machine.endInput();
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
