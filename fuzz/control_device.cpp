// What processes do with the control device: any code, buffer, length, reply and order, while devices come and go, time
// passes and power is switched.

#include "fuzz/model/control_codes.h"
#include "fuzz/support/fuzzed_service.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <array>
#include <cstring>

namespace fuzz {

namespace {

constexpr unsigned mostOperations = 40;
constexpr std::array<ACCESS_MASK, 4> rights = {GENERIC_READ | GENERIC_WRITE, GENERIC_READ, GENERIC_WRITE, 0};
constexpr std::size_t slotCount = 4;

/// What the inputs of one process of the host did together.
std::set<std::uint32_t> &servedCodes() {
    static std::set<std::uint32_t> codes;
    return codes;
}

const MachineSettings settings = {{u"USBHUB3", u"USBHUB"}, {{u"CallbackMode", 1}, {u"CallbackTimeout", 30}}};

enum class Kind : std::uint8_t { drive, mouse, phone, keyboard, remote, adapter };
constexpr unsigned kindCount = 6;

/// A place where one device may be plugged at a time.
struct Slot {
    std::string name;
    std::u16string serial;
    Kind kind = Kind::drive;
    bool taken = false;
    std::shared_ptr<std::atomic<bool>> busy = std::make_shared<std::atomic<bool>>(false);
};

sim::DeviceDescription deviceIn(const Slot &slot) {
    const sim::UsbIdentity drive{0x0781, 0x5581, 0x0100, u"Maker", u"Drive", slot.serial};
    switch (slot.kind) {
    case Kind::mouse:
        return sim::usbDevice(slot.name, {0x046D, 0xC077}, {0x03, 0x01, 0x02}, u"HidUsb",
                              std::u16string(sim::machine::setup::humanInterface.guid));
    case Kind::phone:
        return sim::usbMtpPhone(slot.name, {0x18D1, 0x4EE1, 0x0440, u"Maker", u"Phone", slot.serial});
    case Kind::keyboard:
        return sim::usbKeyboard(slot.name, {0x046D, 0xC31C, 0x6402, u"Maker", u"Keyboard", {}});
    case Kind::adapter:
        return sim::usbBluetoothAdapter(slot.name, {0x0A12, 0x0001});
    case Kind::remote: {
        sim::DeviceDescription remote = sim::usbFlashDrive(slot.name, drive);
        remote.busDriver = u"redirector";
        return remote;
    }
    case Kind::drive:
        break;
    }
    return sim::usbFlashDrive(slot.name, drive);
}

std::vector<std::uint8_t> textBytes(std::u16string text) {
    text += u'\0';
    std::vector<std::uint8_t> bytes(2 * text.size());
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

class Run {
  public:
    explicit Run(const Input &input) : input_(input) {
        service_.listedDevices = [this] { return devicesBelowTheHub(); };
        for (std::size_t nth = 0; nth < slotCount; ++nth) {
            slots_[nth].name = "device" + std::to_string(nth);
            slots_[nth].serial = u"S" + sim::toUtf16(std::to_string(nth));
        }
    }

    void play() {
        begin();
        for (unsigned count = 0; count < mostOperations && !input_.empty(); ++count) {
            operation();
            service_.check();
        }
        service_.finish();
        checkDevices();
        servedCodes().insert(service_.served().begin(), service_.served().end());
    }

    void leaveNothing() {
        machine_.driver().callbackMode = 0;
        machine_.deleteParameters();
        machine_.reloadLogLevel();
        for (Slot &slot : slots_) {
            if (sim::DeviceNode *node = slot.taken ? machine_.machine().find(slot.name) : nullptr) {
                machine_.machine().unplug(*node);
            }
        }
        std::vector<std::uint8_t> none;
        machine_.control(IOCTL_RESCAN_DEVICES, none);        // the register forgets what is gone
        machine_.plug(sim::usbVendorDevice("last", {1, 3})); // and the rules are read without any
        machine_.endInput(0);
    }

  private:
    /// The settings are put where a start of the driver under such values leaves them.
    void begin() {
        const std::uint8_t flags = input_.byte();
        DriverContext &driver = machine_.driver();
        driver.callbackMode = (flags & 3) == 3 ? 1 : flags & 3;
        driver.callbackFallbackAction = flags >> 2 & 1;
        rulesAllow_ = driver.callbackMode == 2 && driver.callbackFallbackAction == 1;
        machine_.setParameter(u"BlockedCompatibleIds", REG_SZ, textBytes(u"Class_e0 Class_08 MS_COMP_MTP"));
        setLogLevel((flags & 8) != 0 ? 4 : 0);
        machine_.reloadLogLevel();
    }

    void operation() {
        const std::uint8_t which = input_.byte();
        switch (which & 15) {
        case 0:
        case 1:
            return open();
        case 2:
            return close();
        case 3:
        case 4:
        case 5:
            return send();
        case 6:
            return reply();
        case 7:
            return cancel();
        case 8:
            return service_.die(input_.byte());
        case 9:
            return plug();
        case 10:
            return unplug();
        case 11:
            return service_.letTimePass();
        case 12:
            return service_.setPower((input_.byte() & 1) != 0);
        case 13:
            return sleepAndWake();
        case 14:
            return setPolicy();
        default:
            return setLogLevel(input_.byte());
        }
    }

    /// A byte: bit 0 the process, bits 2 to 4 which of its handles, bits 5 and 6 the thread.
    struct Who {
        unsigned process;
        FuzzedProcess::Handle handle;
        unsigned thread;
    };
    Who who() {
        const std::uint8_t byte = input_.byte();
        return {byte & 1U, service_.process(byte & 1).handle(byte >> 2 & 7), 1U + (byte >> 5 & 3)};
    }

    void open() {
        const std::uint8_t byte = input_.byte();
        service_.open(byte & 1, rights[byte >> 1 & 3]);
    }
    void close() {
        const Who closer = who();
        service_.errands().begin(service_.process(closer.process).close(closer.handle));
    }

    std::uint32_t code() {
        const std::uint8_t byte = input_.byte();
        if (byte == 0xFF) {
            return input_.number();
        }
        const std::uint32_t known = controlCodes[byte & 7].code;
        return byte < 8 ? known : known ^ 1U << (byte >> 3); // a neighbour: one bit differs
    }
    /// What the code needs, or around it, or any number of bytes.
    std::size_t length(std::size_t least, unsigned how) {
        switch (how & 3) {
        case 0:
            return least;
        case 1:
            return least == 0 ? 0 : least - 1;
        case 2:
            return least * 3 + 7;
        default:
            return input_.word();
        }
    }
    void send() {
        const Who sender = who();
        sim::process::ControlRequest request;
        request.code = code();
        request.thread = sender.thread;
        const ControlCode *known = knownCode(request.code);
        const std::uint8_t how = input_.byte();
        request.outputBytes = length(known == nullptr ? 0 : known->leastOutput, how);
        const std::size_t inputBytes = length(known == nullptr ? 0 : known->leastInput, how >> 2);
        request.input = input_.bytes(inputBytes);
        request.input.resize(inputBytes);
        service_.send(sender.process, sender.handle, std::move(request));
    }
    void reply() {
        const Who sender = who();
        const std::uint8_t which = input_.byte();
        const std::uint32_t answer = input_.byte();
        const std::uint64_t id =
            which == 0xFF ? std::uint64_t{input_.number()} << 32 | input_.number() : service_.shownId(which);
        service_.reply(sender.process, sender.handle, id, answer);
    }
    void cancel() {
        const Who canceller = who();
        FuzzedProcess &process = service_.process(canceller.process);
        const std::uint8_t what = input_.byte();
        if ((what & 3) == 0) {
            process.cancel(canceller.handle);
        } else if ((what & 3) == 1) {
            process.endThread(canceller.thread);
        } else {
            process.cancelOne(what >> 2);
        }
    }

    /// In a thread of its own: it may ask the service.
    void work(const Slot &slot, std::function<void()> action) {
        *slot.busy = true;
        service_.errands().begin([busy = slot.busy, action = std::move(action)] {
            try {
                action();
            } catch (const std::logic_error &) {
                // the device is being cycled just now
            }
            *busy = false;
        });
    }
    Slot *freeSlot(bool taken) {
        Slot &slot = slots_[input_.byte() % slotCount];
        return slot.taken == taken && !*slot.busy && service_.errands().roomForOne() ? &slot : nullptr;
    }
    void plug() {
        Slot *slot = freeSlot(false);
        const std::uint8_t kind = input_.byte();
        if (slot != nullptr) {
            slot->taken = true;
            slot->kind = static_cast<Kind>(kind % kindCount);
            sim::Machine &machine = machine_.machine();
            sim::DeviceNode *parent = slot->kind == Kind::remote ? &machine.rootNode() : nullptr;
            work(*slot, [&machine, device = deviceIn(*slot), parent] { machine.plug(device, parent); });
        }
    }
    void unplug() {
        if (Slot *slot = freeSlot(true)) {
            slot->taken = false;
            work(*slot, [&machine = machine_.machine(), name = slot->name] {
                if (sim::DeviceNode *node = machine.find(name)) {
                    machine.unplug(*node);
                }
            });
        }
    }
    void sleepAndWake() {
        service_.settle();
        if (service_.errands().underWay() == 0) {
            service_.setPower(true);
            machine_.machine().sleep();
            machine_.machine().wake();
        }
    }
    void setPolicy() {
        const std::uint8_t which = input_.byte();
        const bool allows = (which & 1) != 0;
        const bool readOnly = (which & 2) != 0;
        rulesAllow_ |= allows || readOnly;
        machine_.setParameter(u"AllowedHardwareIds", REG_SZ, textBytes(allows ? u"VID_*" : u""));
        machine_.setParameter(u"ReadOnlyHardwareIds", REG_SZ, textBytes(readOnly ? u"*" : u""));
    }
    void setLogLevel(std::uint8_t level) {
        const bool isNumber = level < 0x80;
        service_.logLevel = isNumber ? std::optional<std::uint32_t>(level) : std::nullopt;
        machine_.setParameter(u"LogLevel", isNumber ? REG_DWORD : REG_SZ, {level, 0, 0, 0});
    }

    std::optional<std::size_t> devicesBelowTheHub() {
        if (service_.errands().underWay() != 0) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(std::count_if(
            slots_.begin(), slots_.end(), [](const Slot &slot) { return slot.taken && slot.kind != Kind::remote; }));
    }
    /// No drive runs that nobody ever allowed.
    void checkDevices() {
        for (const Slot &slot : slots_) {
            const sim::DeviceNode *node = slot.taken ? machine_.machine().find(slot.name) : nullptr;
            if (node != nullptr && slot.kind == Kind::drive) {
                require(!node->started() || rulesAllow_ || service_.mayHaveAllowed(slot.serial),
                        "a drive runs only when somebody said so");
            }
        }
    }

    Input input_;
    LivingMachine &machine_ = LivingMachine::instance(settings);
    FuzzedService service_{machine_};
    std::array<Slot, slotCount> slots_;
    bool rulesAllow_ = false;
};

/// With "--every-code": each of the control codes must have done what it is for in one of the inputs.
void requireEveryCode() {
    for (const ControlCode &code : controlCodes) {
        if (!servedCodes().contains(code.code)) {
            std::fprintf(stderr, "no seed has the service %s\n", code.name);
            std::_Exit(1);
        }
    }
}

} // namespace

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Run run{fuzz::Input(data, size)};
    run.play();
    run.leaveNothing();
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *count, char ***arguments) {
    fuzz::LivingMachine::instance(fuzz::settings);
    for (int nth = 1; nth < *count; ++nth) {
        if (std::strcmp((*arguments)[nth], "--every-code") == 0) {
            fuzz::servedCodes(); // made before, so that it goes after
            std::atexit(fuzz::requireEveryCode);
        }
    }
    return 0;
}
