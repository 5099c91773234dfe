#include "wrong_driver.h"

#include "simulator/kernel/sanitizer.h"
#include "simulator/kernel/strings.h"
#include "simulator/kernel/thread.h"
#include "simulator/machine/storage_device.h"
#include "simulator/machine/usb_device.h"
#include "simulator/process/user_process.h"

#include <ntdddisk.h>
#include <wdf/bind.h>

#if SIM_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

// What the entry stub of a real image defines.
extern "C" {
const WDFFUNC *WdfFunctions = nullptr;
PWDF_DRIVER_GLOBALS WdfDriverGlobals = nullptr;
}

namespace sim::strictness {
namespace {

/// While it lives, memory that stays behind is no finding of the leak sanitizer: that it does is what is tested.
struct LeaksAreMeant {
#if SIM_ADDRESS_SANITIZER
    LeaksAreMeant() { __lsan_disable(); }
    ~LeaksAreMeant() { __lsan_enable(); }
#else
    ~LeaksAreMeant() {}
#endif
};

/// The loaded driver, bound as the entry stub of a real image does it.
struct Binding {
    const Mistake *mistake = nullptr;
    PDRIVER_UNLOAD frameworkUnload = nullptr;
    WDF_BIND_INFO bindInfo{};
    std::u16string path;
    UNICODE_STRING registryPath{};
} binding;

NTSTATUS addWrongFilter(WDFDRIVER, PWDFDEVICE_INIT init) {
    WdfFdoInitSetFilter(init);
    WDFDEVICE device = nullptr;
    const NTSTATUS status = WdfDeviceCreate(&init, WDF_NO_OBJECT_ATTRIBUTES, &device);
    if (NT_SUCCESS(status)) {
        binding.mistake->make(device, WdfDeviceWdmGetPhysicalDevice(device));
    }
    return status;
}

VOID unloadWrongDriver(PDRIVER_OBJECT driver) {
    binding.frameworkUnload(driver);
    WdfVersionUnbind(&binding.registryPath, &binding.bindInfo, WdfDriverGlobals);
}

class WrongImage final : public DriverImage {
  public:
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        static WCHAR component[] = L"KmdfLibrary";
        binding.path = view(*registryPath);
        binding.registryPath = {registryPath->Length, registryPath->Length,
                                reinterpret_cast<PWCH>(binding.path.data())};
        binding.bindInfo = {sizeof(WDF_BIND_INFO),          component,     {1, 15, 0},
                            WDF_FUNCTION_TABLE_NUM_ENTRIES, &WdfFunctions, nullptr};
        NTSTATUS status = WdfVersionBind(driver, &binding.registryPath, &binding.bindInfo, &WdfDriverGlobals);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        WDF_DRIVER_CONFIG config;
        WDF_DRIVER_CONFIG_INIT(&config, addWrongFilter);
        status = WdfDriverCreate(driver, registryPath, WDF_NO_OBJECT_ATTRIBUTES, &config, WDF_NO_HANDLE);
        binding.frameworkUnload = driver->DriverUnload;
        driver->DriverUnload = unloadWrongDriver;
        return status;
    }
};

void useDisk(Machine &machine) {
    DeviceNode &stick = machine.plug(usbFlashDrive("stick", {0x0781, 0x5581, 0x0123, u"SanDisk", u"Ultra", u"A200"}));
    UserProcess user(700);
    UserProcess::Handle handle = 0;
    EXPECT_EQ(user.open(machine.find("stick disk")->physicalDevice(), handle), STATUS_SUCCESS);
    (void)user.read(handle, 0, 512);
    (void)user.write(handle, 0, std::vector<std::uint8_t>(512, 0x5A));
    (void)user.control(handle, {IOCTL_DISK_IS_WRITABLE, {}, 0});
    user.die();
    machine.unplug(stick);
}

} // namespace

void PrintTo(const Mistake &mistake, std::ostream *out) {
    *out << mistake.name;
}

std::vector<std::string> run(const Mistake &mistake) {
    binding = {};
    binding.mistake = &mistake;
    MachineOptions options;
    options.openImage = [] { return std::make_unique<WrongImage>(); };
    Machine machine(options);
    machine.presetClassFilters();
    if (mistake.victim == Victim::disk) {
        useDisk(machine);
    } else {
        machine.unplug(machine.plug(usbVendorDevice("victim", {0x1234, 0x5678})));
    }
    machine.unloadDriver();
    return machine.leaks();
}

void expectCaught(const Mistake &mistake) {
    if (!mistake.rule.empty()) {
        // "bug check [rule] routine: message", and on the next line the driver's code.
        EXPECT_DEATH(run(mistake), "bug check ." + mistake.rule + ". " + mistake.routine + ": .*" + mistake.detail +
                                       "(.|\n)*called from .*sim::strictness::");
        return;
    }
    const LeaksAreMeant leaksAreMeant;
    const std::vector<std::string> leaks = run(mistake);
    EXPECT_THAT(leaks, testing::Contains(testing::AllOf(testing::StartsWith(mistake.routine),
                                                        testing::ContainsRegex(mistake.detail))))
        << testing::PrintToString(leaks);
}

void raiseToDispatchLevel() {
    currentThread().irql = DISPATCH_LEVEL;
}

std::string nameOf(const testing::TestParamInfo<Mistake> &info) {
    return info.param.name;
}

TEST(RightDriver, IsNotStoppedAndLeavesNothing) {
    const Mistake none{"None", [](WDFDEVICE, PDEVICE_OBJECT) {}, {}, {}, {}};
    EXPECT_THAT(run(none), testing::IsEmpty());
}

TEST_P(CaughtMistakes, AreNamedWithRoutineAndCaller) {
    expectCaught(GetParam());
}

} // namespace sim::strictness
