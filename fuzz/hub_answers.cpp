// What a hub answers about a device: failures, short answers, any bytes. Input: for each kind of question a byte that
// says how it is answered, then what with.

#include "fuzzed_machine.h"

#include "simulator/machine/usb_device.h"

namespace {

sim::HubAnswer answer(FuzzedDataProvider &data) {
    sim::HubAnswer made;
    switch (data.ConsumeIntegral<std::uint8_t>() % 4) {
    case 0:
        break;
    case 1:
        made.failure = STATUS_UNSUCCESSFUL;
        break;
    case 2:
        made.shortenTo = data.ConsumeIntegral<std::uint16_t>();
        break;
    default:
        made.replace = fuzz::bytes(data, 300);
    }
    return made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *input, std::size_t size) {
    FuzzedDataProvider data(input, size);
    fuzz::setLogging(data.ConsumeBool());
    fuzz::setUsualPolicy();
    sim::DeviceDescription stick =
        sim::usbFlashDrive("fuzzed", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"});
    stick.children.clear();
    sim::UsbDescriptors &usb = *stick.usb;
    usb.answersLater = data.ConsumeBool();
    usb.connectionInformation = answer(data);
    usb.configurationDescriptor = answer(data);
    usb.languageList = answer(data);
    for (const std::uint8_t index : {usb.manufacturerIndex, usb.productIndex, usb.serialIndex}) {
        usb.stringAnswers[index] = answer(data);
    }
    const fuzz::Outcome outcome = fuzz::plugAndUnplug(stick);

    fuzz::require(outcome.added && outcome.hasFilter, "no answer keeps the filter away");
    fuzz::require(outcome.returned == STATUS_SUCCESS, "what the hub does not tell is left out, not fatal");
    fuzz::require(outcome.filterable == 1 && outcome.mode == 1 && outcome.problem == 29,
                  "a device that no rule names is blocked, whatever its hub says");
    return 0;
}
