#include "simulator/framework/framework.h"
#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/usb_device.h"

#include <wdf.h>
#include <wdf/bind.h>

#include <gtest/gtest.h>

#include <functional>

extern "C" {
// Weak: another test of the same program may define them too.
__attribute__((weak)) const WDFFUNC *WdfFunctions = nullptr;
__attribute__((weak)) PWDF_DRIVER_GLOBALS WdfDriverGlobals = nullptr;
}

namespace sim::machinetest {
namespace {

struct ProbeFilter {
    ULONG mark;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(ProbeFilter, probeFilterOf)

/// A framework filter whose device-add routine a test may take over; bound as the entry stub of a real image does it.
struct KmdfFilter {
    bool setsFilter = true;
    NTSTATUS addStatus = STATUS_SUCCESS;
    std::function<void(WDFDEVICE)> onDevice;
    unsigned cleanups = 0;

    PDRIVER_UNLOAD frameworkUnload = nullptr;
    WDF_BIND_INFO bindInfo{};
    std::u16string path;
    UNICODE_STRING registryPath{};
} *filter = nullptr;

VOID cleanUp(WDFOBJECT) {
    ++filter->cleanups;
}

NTSTATUS deviceAdd(WDFDRIVER, PWDFDEVICE_INIT init) {
    if (filter->setsFilter) {
        WdfFdoInitSetFilter(init);
    }
    if (!NT_SUCCESS(filter->addStatus) && !filter->setsFilter) {
        return filter->addStatus;
    }
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, ProbeFilter);
    attributes.EvtCleanupCallback = cleanUp;
    WDFDEVICE device = nullptr;
    if (const NTSTATUS status = WdfDeviceCreate(&init, &attributes, &device); !NT_SUCCESS(status)) {
        return status;
    }
    probeFilterOf(device)->mark = 42;
    if (filter->onDevice) {
        filter->onDevice(device);
    }
    return filter->addStatus;
}

VOID unloadAndUnbind(PDRIVER_OBJECT driver) {
    filter->frameworkUnload(driver);
    WdfVersionUnbind(&filter->registryPath, &filter->bindInfo, WdfDriverGlobals);
}

class KmdfImage final : public DriverImage {
  public:
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        static WCHAR component[] = L"KmdfLibrary";
        filter->path = view(*registryPath);
        filter->registryPath = {registryPath->Length, registryPath->Length,
                                reinterpret_cast<PWCH>(filter->path.data())};
        filter->bindInfo = {sizeof(WDF_BIND_INFO),          component,     {1, 15, 0},
                            WDF_FUNCTION_TABLE_NUM_ENTRIES, &WdfFunctions, nullptr};
        NTSTATUS status = WdfVersionBind(driver, &filter->registryPath, &filter->bindInfo, &WdfDriverGlobals);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        WDF_DRIVER_CONFIG config;
        WDF_DRIVER_CONFIG_INIT(&config, deviceAdd);
        status = WdfDriverCreate(driver, registryPath, WDF_NO_OBJECT_ATTRIBUTES, &config, WDF_NO_HANDLE);
        filter->frameworkUnload = driver->DriverUnload;
        driver->DriverUnload = unloadAndUnbind;
        return status;
    }
};

MachineOptions kmdfOptions() {
    MachineOptions options;
    options.openImage = [] { return std::make_unique<KmdfImage>(); };
    return options;
}

struct KmdfFilters : testing::Test, MachineObserver {
    KmdfFilter driver;
    std::vector<AddReport> reports;
    ULONG markSeen = 0;

    KmdfFilters() { filter = &driver; }
    ~KmdfFilters() override { filter = nullptr; }

    void addFinished(const AddReport &report) override {
        reports.push_back(report);
        if (report.attached != nullptr) {
            auto *context = static_cast<ProbeFilter *>(framework::contextOfDevice(report.attached, "ProbeFilter"));
            markSeen = context == nullptr ? 0 : context->mark;
        }
    }
};

TEST_F(KmdfFilters, LivesAndDiesWithItsDevice) {
    Machine machine(kmdfOptions());
    machine.presetClassFilters();
    machine.rootHub();
    machine.setObserver(this);
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3", ours, u"\\Driver\\WINUSB"}));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].callbackStatus, STATUS_SUCCESS);
    EXPECT_EQ(markSeen, 42U);
    driver.cleanups = 0;
    machine.unplug(node);
    EXPECT_EQ(driver.cleanups, 1U);
    machine.unloadDriver();
    EXPECT_EQ(machine.leaks(), std::vector<std::string>{});
}

TEST_F(KmdfFilters, ADisabledDeviceLosesItsFilterToo) {
    Machine machine(kmdfOptions());
    machine.presetClassFilters();
    machine.rootHub();
    driver.cleanups = 0;
    driver.onDevice = [](WDFDEVICE device) {
        WDF_DEVICE_STATE state;
        WDF_DEVICE_STATE_INIT(&state);
        state.Disabled = WdfTrue;
        state.DontDisplayInUI = WdfTrue;
        WdfDeviceSetDeviceState(device, &state);
    };
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_TRUE(node.everStarted());
    EXPECT_TRUE(node.hidden());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3"}));
    EXPECT_EQ(driver.cleanups, 1U);
    driver.onDevice = {};
    machine.unloadDriver();
    EXPECT_EQ(machine.leaks(), std::vector<std::string>{});
}

TEST_F(KmdfFilters, AFailureAfterSetFilterIsHidden) {
    Machine machine(kmdfOptions());
    machine.presetClassFilters();
    machine.rootHub();
    machine.setObserver(this);
    driver.addStatus = STATUS_UNSUCCESSFUL;
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3", u"\\Driver\\WINUSB"}));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].returned, STATUS_SUCCESS);
    EXPECT_EQ(reports[0].callbackStatus, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(reports[0].attached, nullptr);
}

TEST_F(KmdfFilters, AFailureBeforeSetFilterIsCode31) {
    Machine machine(kmdfOptions());
    machine.presetClassFilters();
    machine.rootHub();
    driver.setsFilter = false;
    driver.addStatus = STATUS_UNSUCCESSFUL;
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), STATUS_UNSUCCESSFUL);
}

} // namespace
} // namespace sim::machinetest
