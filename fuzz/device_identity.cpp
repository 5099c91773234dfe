// Ids and other properties of a device, of any bytes and lengths. Input: a byte that says which properties are replaced
// and whether the log is on, then for each a failure or bytes.

#include "fuzzed_machine.h"

#include "simulator/machine/usb_device.h"

namespace {

const char *const properties[] = {"HardwareId", "CompatibleIds", "ClassGuid",  "BusReportedDeviceDesc",
                                  "Service",    "InstanceId",    "DeviceDesc", "EnumeratorName"};

constexpr NTSTATUS failures[] = {STATUS_OBJECT_NAME_NOT_FOUND, STATUS_INSUFFICIENT_RESOURCES, STATUS_NO_SUCH_DEVICE,
                                 STATUS_BUFFER_TOO_SMALL};

sim::RawProperty rawProperty(FuzzedDataProvider &data) {
    sim::RawProperty property;
    const auto kind = data.ConsumeIntegral<std::uint8_t>();
    if (kind < 8) {
        property.failure = failures[kind % 4];
        return property;
    }
    property.data = fuzz::bytes(data, 300);
    if (kind < 16) { // the lengths around what a counted string can hold
        property.data.resize(0xFFFA + kind % 8, 'A');
    }
    return property;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *input, std::size_t size) {
    FuzzedDataProvider data(input, size);
    fuzz::setLogging(data.ConsumeBool());
    fuzz::setUsualPolicy();
    const auto replaced = data.ConsumeIntegral<std::uint8_t>();
    sim::DeviceDescription stick =
        sim::usbFlashDrive("fuzzed", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"});
    stick.children.clear();
    for (std::size_t i = 0; i < std::size(properties); ++i) {
        if ((replaced >> i & 1) != 0) {
            stick.rawProperties[properties[i]] = rawProperty(data);
        }
    }
    const fuzz::Outcome outcome = fuzz::plugAndUnplug(stick);

    if (!outcome.added || !outcome.hasFilter) {
        return 0; // not asked, not taken for a USB device, or refused
    }
    if (NT_SUCCESS(outcome.returned)) {
        fuzz::require(outcome.mode != 3, "nothing is read-only without a rule");
        fuzz::require(outcome.filterable == 0 || outcome.mode == 1,
                      "what the policy filters is blocked without a rule");
        fuzz::require(outcome.mode != 1 || !outcome.started, "a blocked device does not run");
    } else {
        fuzz::require(!outcome.started, "a device whose add failed does not run");
    }
    return 0;
}
