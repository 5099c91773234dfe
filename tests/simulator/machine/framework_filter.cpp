#include "framework_filter.h"

#include "simulator/kernel/strings.h"

#include <wdf/bind.h>

#include <stdexcept>

extern "C" {
const WDFFUNC *WdfFunctions = nullptr;
PWDF_DRIVER_GLOBALS WdfDriverGlobals = nullptr;
}

namespace sim::machinetest {
namespace {

FrameworkFilter *inUse = nullptr;

struct FilterBinding {
    PDRIVER_UNLOAD frameworkUnload = nullptr;
    WDF_BIND_INFO bindInfo{};
    std::u16string path;
    UNICODE_STRING registryPath{};
} filterBinding;

VOID countCleanup(WDFOBJECT) {
    ++inUse->cleanups;
}

NTSTATUS addFilter(WDFDRIVER, PWDFDEVICE_INIT init) {
    if (inUse->setsFilter) {
        WdfFdoInitSetFilter(init);
    }
    if (!NT_SUCCESS(inUse->addStatus) && !inUse->setsFilter) {
        return inUse->addStatus;
    }
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, ProbeFilter);
    attributes.EvtCleanupCallback = countCleanup;
    WDFDEVICE device = nullptr;
    if (const NTSTATUS status = WdfDeviceCreate(&init, &attributes, &device); !NT_SUCCESS(status)) {
        return status;
    }
    probeFilterOf(device)->mark = 42;
    if (inUse->onDevice) {
        inUse->onDevice(device);
    }
    return inUse->addStatus;
}

VOID unloadAndUnbind(PDRIVER_OBJECT driver) {
    filterBinding.frameworkUnload(driver);
    WdfVersionUnbind(&filterBinding.registryPath, &filterBinding.bindInfo, WdfDriverGlobals);
}

class FilterImage final : public DriverImage {
  public:
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        static WCHAR component[] = L"KmdfLibrary";
        filterBinding.path = view(*registryPath);
        filterBinding.registryPath = {registryPath->Length, registryPath->Length,
                                      reinterpret_cast<PWCH>(filterBinding.path.data())};
        filterBinding.bindInfo = {sizeof(WDF_BIND_INFO),          component,     {1, 15, 0},
                                  WDF_FUNCTION_TABLE_NUM_ENTRIES, &WdfFunctions, nullptr};
        NTSTATUS status =
            WdfVersionBind(driver, &filterBinding.registryPath, &filterBinding.bindInfo, &WdfDriverGlobals);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        WDF_DRIVER_CONFIG config;
        WDF_DRIVER_CONFIG_INIT(&config, addFilter);
        status = WdfDriverCreate(driver, registryPath, WDF_NO_OBJECT_ATTRIBUTES, &config, WDF_NO_HANDLE);
        filterBinding.frameworkUnload = driver->DriverUnload;
        driver->DriverUnload = unloadAndUnbind;
        return status;
    }
};

} // namespace

FrameworkFilter::FrameworkFilter() {
    if (inUse != nullptr) {
        throw std::logic_error("one framework filter at a time");
    }
    inUse = this;
    filterBinding = {};
}

FrameworkFilter::~FrameworkFilter() {
    inUse = nullptr;
}

MachineOptions FrameworkFilter::options() const {
    MachineOptions options;
    options.openImage = [] { return std::make_unique<FilterImage>(); };
    return options;
}

} // namespace sim::machinetest
