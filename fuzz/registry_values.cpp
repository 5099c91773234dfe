// Registry values of any type and any bytes. Input: for each value a byte for its type (0xFF: no such value), then its
// bytes; read from the end as FuzzedDataProvider does.

#include "fuzzed_machine.h"

#include "simulator/machine/usb_device.h"

namespace {

constexpr std::uint8_t absent = 0xFF;
const std::u16string ruleLists[] = {u"BlockedCompatibleIds", u"AllowedHardwareIds", u"ReadOnlyHardwareIds"};

struct Value {
    std::uint8_t type = absent;
    std::vector<std::uint8_t> data;

    bool isText() const { return type == REG_SZ || type == REG_MULTI_SZ; }
    /// Whether a rule may stand in it: some character that is neither blank nor NUL.
    bool mayHoldARule() const {
        for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
            const unsigned unit = data[i] | data[i + 1] << 8;
            if (unit != 0 && unit != ' ') {
                return true;
            }
        }
        return false;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *input, std::size_t size) {
    FuzzedDataProvider data(input, size);
    const bool logs = data.ConsumeBool();
    fuzz::setLogging(logs);
    Value values[3];
    for (std::size_t i = 0; i < 3; ++i) {
        values[i].type = data.ConsumeIntegral<std::uint8_t>();
        values[i].data = fuzz::bytes(data, 600);
        fuzz::setParameter(ruleLists[i], values[i].type == absent ? std::nullopt : std::optional(values[i].type),
                           values[i].data);
    }
    sim::DeviceDescription stick =
        sim::usbFlashDrive("fuzzed", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"});
    stick.children.clear();
    const fuzz::Outcome outcome = fuzz::plugAndUnplug(stick);

    fuzz::require(outcome.added && outcome.hasFilter && outcome.returned == STATUS_SUCCESS,
                  "no registry value keeps the filter away");
    fuzz::require(outcome.mode >= 1 && outcome.mode <= 3, "the rules give one of three modes");
    fuzz::require((outcome.mode == 1) == (outcome.problem == 29), "a blocked device is disabled, no other is");
    if (!values[0].isText()) {
        fuzz::require(outcome.filterable == 0 && outcome.mode == 2, "without a list of ids nothing is filtered");
    }
    if (outcome.filterable != 0) {
        fuzz::require(outcome.mode != 2 || (values[1].isText() && values[1].mayHoldARule()),
                      "only a rule allows a device");
        fuzz::require(outcome.mode != 3 || (values[2].isText() && values[2].mayHoldARule()),
                      "only a rule makes a device read-only");
    }
    return 0;
}
