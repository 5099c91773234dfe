#include "framework_fixture.h"

#include "simulator/kernel/dispatcher.h"
#include "simulator/kernel/irp_table.h"

#include <chrono>
#include <thread>

extern "C" {
const WDFFUNC *WdfFunctions = nullptr;
PWDF_DRIVER_GLOBALS WdfDriverGlobals = nullptr;
}

namespace sim::test {

FrameworkTest *FrameworkTest::current = nullptr;

FrameworkTest::FrameworkTest() {
    current = this;
    kernel.registry.makeKey(view(registryPath.get()));
    driverObject = createDriverObject(u"TestDriver");
    WDF_DRIVER_CONFIG_INIT(&driverConfig, evtAdd);
    driverConfig.EvtDriverUnload = evtUnload;
    WDF_OBJECT_ATTRIBUTES_INIT(&driverAttributes);
    WDF_OBJECT_ATTRIBUTES_INIT(&deviceAttributes);
    onAdd = [this](PWDFDEVICE_INIT init) { return createDevice(init); };
}

FrameworkTest::~FrameworkTest() {
    setBugCheckHandler({}); // what happens from here on is no test's
    if (physical) {
        removeDevice();
    }
    if (bound_) {
        unloadDriver();
    }
    deleteDriverObject(driverObject);
    EXPECT_EQ(framework::leaks(), std::vector<std::string>{});
    EXPECT_EQ(leakedIrps(), std::vector<std::string>{});
    current = nullptr;
}

NTSTATUS FrameworkTest::bind(ULONG functionCount) {
    static WCHAR component[] = L"KmdfLibrary";
    bindInfo_ = {sizeof(WDF_BIND_INFO), component, {1, 15, 0}, functionCount, &WdfFunctions, nullptr};
    const NTSTATUS status = WdfVersionBind(driverObject, &registryPath, &bindInfo_, &WdfDriverGlobals);
    bound_ = NT_SUCCESS(status);
    return status;
}

void FrameworkTest::unbind() {
    bound_ = false;
    WdfVersionUnbind(&registryPath, &bindInfo_, WdfDriverGlobals);
}

NTSTATUS FrameworkTest::loadDriver() {
    if (!bound_) {
        EXPECT_EQ(bind(), STATUS_SUCCESS);
    }
    return WdfDriverCreate(driverObject, &registryPath, &driverAttributes, &driverConfig, &driver);
}

void FrameworkTest::unloadDriver() {
    if (WdfDriverGlobals->Driver) {
        driverObject->DriverUnload(driverObject);
    }
    unbind();
}

NTSTATUS FrameworkTest::add(PDEVICE_OBJECT newPhysical) {
    device = nullptr;
    return driverObject->DriverExtension->AddDevice(driverObject, newPhysical);
}

void FrameworkTest::plugAndStart(bool started) {
    if (!WdfDriverGlobals || !bound_) {
        ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    }
    physical = bus.plug();
    ASSERT_EQ(add(physical), STATUS_SUCCESS);
    if (started) {
        ASSERT_EQ(pnp(IRP_MN_START_DEVICE), STATUS_SUCCESS);
    }
}

void FrameworkTest::removeDevice() {
    bus.unplug(physical);
    physical = nullptr;
    device = nullptr;
}

void FrameworkTest::note(const std::string &event) {
    std::lock_guard lock(eventsMutex_);
    events_.push_back(event);
}

std::vector<std::string> FrameworkTest::takeEvents() {
    std::lock_guard lock(eventsMutex_);
    return std::exchange(events_, {});
}

NTSTATUS FrameworkTest::evtAdd(WDFDRIVER, PWDFDEVICE_INIT init) {
    return current->onAdd(init);
}

VOID FrameworkTest::evtUnload(WDFDRIVER) {
    current->onUnload();
}

NTSTATUS FrameworkTest::createDevice(PWDFDEVICE_INIT init) {
    if (makesFilter) {
        WdfFdoInitSetFilter(init);
    }
    beforeCreate(init);
    const NTSTATUS status = WdfDeviceCreate(&init, &deviceAttributes, &device);
    return NT_SUCCESS(status) ? afterCreate() : status;
}

TestIrp &TestIrp::control(ULONG code, void *buffer, ULONG input, ULONG output, UCHAR majorFunction) {
    irp->AssociatedIrp.SystemBuffer = buffer;
    irp->RequestorMode = majorFunction == IRP_MJ_DEVICE_CONTROL ? UserMode : KernelMode;
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = majorFunction;
    location->Parameters.DeviceIoControl.IoControlCode = code;
    location->Parameters.DeviceIoControl.InputBufferLength = input;
    location->Parameters.DeviceIoControl.OutputBufferLength = output;
    return *this;
}

TestIrp &TestIrp::major(UCHAR majorFunction, UCHAR minor) {
    IoGetNextIrpStackLocation(irp)->MajorFunction = majorFunction;
    IoGetNextIrpStackLocation(irp)->MinorFunction = minor;
    return *this;
}

TestIrp &TestIrp::file(PFILE_OBJECT file) {
    IoGetNextIrpStackLocation(irp)->FileObject = file;
    return *this;
}

NTSTATUS TestIrp::send(PDEVICE_OBJECT device) {
    IoSetCompletionRoutine(irp, done, this, TRUE, TRUE, TRUE);
    return IofCallDriver(device, irp);
}

void TestIrp::await() {
    while (!completed_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

NTSTATUS TestIrp::done(PDEVICE_OBJECT, PIRP, PVOID context) {
    static_cast<TestIrp *>(context)->completed_ = true;
    return STATUS_MORE_PROCESSING_REQUIRED;
}

} // namespace sim::test
