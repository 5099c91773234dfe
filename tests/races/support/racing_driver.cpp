#include "racing_driver.h"

#include "simulator/machine/machine.h"
#include "simulator/machine/usb_device.h"
#include "threads.h"

#include <wdf/bind.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

// What the entry stub of a real image defines.
extern "C" {
const WDFFUNC *WdfFunctions = nullptr;
PWDF_DRIVER_GLOBALS WdfDriverGlobals = nullptr;
}

namespace races {
namespace {

/// The loaded driver.
struct Loaded {
    std::function<void(Shared &)> count;
    Shared *shared = nullptr;
    bool racing = false;
    PDRIVER_UNLOAD frameworkUnload = nullptr;
    WDF_BIND_INFO bindInfo{};
    UNICODE_STRING registryPath{};
    std::u16string path;
};
Loaded loaded;
std::atomic<unsigned> arrived = 0;
std::atomic<unsigned> turnsTaken = 0;
std::atomic<unsigned> turnsOver = 0;

NTSTATUS addFilter(WDFDRIVER, PWDFDEVICE_INIT init) {
    WdfFdoInitSetFilter(init);
    WDFDEVICE device = nullptr;
    const NTSTATUS status = WdfDeviceCreate(&init, WDF_NO_OBJECT_ATTRIBUTES, &device);
    if (loaded.racing) { // not for the host controller and the hub
        loaded.count(*loaded.shared);
    }
    return status;
}

VOID unloadRacingDriver(PDRIVER_OBJECT driver) {
    ExDeleteResourceLite(&loaded.shared->resource);
    loaded.frameworkUnload(driver);
    WdfVersionUnbind(&loaded.registryPath, &loaded.bindInfo, WdfDriverGlobals);
}

class RacingImage final : public sim::DriverImage {
  public:
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        static WCHAR component[] = L"KmdfLibrary";
        const auto *text = reinterpret_cast<const char16_t *>(registryPath->Buffer);
        loaded.path.assign(text, registryPath->Length / sizeof(WCHAR));
        loaded.registryPath = {registryPath->Length, registryPath->Length, reinterpret_cast<PWCH>(loaded.path.data())};
        loaded.bindInfo = {sizeof(WDF_BIND_INFO),          component,     {1, 15, 0},
                           WDF_FUNCTION_TABLE_NUM_ENTRIES, &WdfFunctions, nullptr};
        NTSTATUS status = WdfVersionBind(driver, &loaded.registryPath, &loaded.bindInfo, &WdfDriverGlobals);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        WDF_DRIVER_CONFIG config;
        WDF_DRIVER_CONFIG_INIT(&config, addFilter);
        status = WdfDriverCreate(driver, registryPath, WDF_NO_OBJECT_ATTRIBUTES, &config, WDF_NO_HANDLE);
        loaded.frameworkUnload = driver->DriverUnload;
        driver->DriverUnload = unloadRacingDriver;
        ExInitializeFastMutex(&loaded.shared->fastMutex);
        ExInitializeResourceLite(&loaded.shared->resource);
        KeInitializeEvent(&loaded.shared->event, SynchronizationEvent, TRUE);
        return NT_SUCCESS(status) ? WdfWaitLockCreate(WDF_NO_OBJECT_ATTRIBUTES, &loaded.shared->waitLock) : status;
    }
};

} // namespace

void meetOther() {
    const unsigned both = (arrived.fetch_add(1, std::memory_order_relaxed) / 2 + 1) * 2;
    while (arrived.load(std::memory_order_relaxed) < both) {
        std::this_thread::yield();
    }
}

void inTurn(const std::function<void()> &access) {
    const unsigned turn = turnsTaken.fetch_add(1, std::memory_order_relaxed);
    while (turnsOver.load(std::memory_order_relaxed) < turn) {
        std::this_thread::yield();
    }
    access();
    turnsOver.fetch_add(1, std::memory_order_relaxed);
    meetOther();
}

void runRacingDriver(const std::function<void(Shared &)> &count) {
    Shared shared;
    loaded = {};
    loaded.count = count;
    loaded.shared = &shared;
    arrived = 0;
    turnsTaken = 0;
    turnsOver = 0;
    sim::MachineOptions options;
    options.openImage = [] { return std::make_unique<RacingImage>(); };
    sim::Machine machine(options);
    machine.presetClassFilters();
    machine.loadDriver();
    machine.rootHub();
    const auto plug = [&](unsigned number) {
        machine.plug(
            sim::usbVendorDevice("device" + std::to_string(number), {0x1234, static_cast<std::uint16_t>(number)}));
    };
    loaded.racing = true;
    together(2, plug);
    EXPECT_EQ(shared.count, 2);
    machine.unloadDriver();
    EXPECT_THAT(machine.leaks(), testing::IsEmpty());
}

} // namespace races
