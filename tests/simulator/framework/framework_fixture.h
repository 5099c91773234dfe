#pragma once

#include "bus.h"
#include "simulator/framework/framework.h"
#include "tests/simulator/kernel/kernel_fixture.h"

#include <wdf.h>
#include <wdf/bind.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sim::test {

/// A kernel, a bus and a small framework driver whose callbacks the test sets before it needs them.
class FrameworkTest : public KernelTest {
  public:
    /// For callbacks of the driver, which have no test at hand.
    static void noteEvent(const std::string &event) { current->note(event); }

  protected:
    FrameworkTest();
    ~FrameworkTest() override;

    /// Binds and creates the driver object. Attributes and configuration may be changed before.
    NTSTATUS loadDriver();
    /// What the entry stub's unload routine does: the framework's routine, then unbinding.
    void unloadDriver();
    NTSTATUS bind(ULONG functionCount = WDF_FUNCTION_TABLE_NUM_ENTRIES);
    void unbind();

    /// Calls AddDevice for a new physical device. What it returned; the framework device, if any, is in `device`.
    NTSTATUS add(PDEVICE_OBJECT physical);
    /// A new physical device with the framework device on it, started unless told otherwise.
    void plugAndStart(bool started = true);
    NTSTATUS pnp(UCHAR minor) { return bus.pnp(physical, minor); }
    void removeDevice();

    void note(const std::string &event);
    std::vector<std::string> takeEvents();

    static FrameworkTest *current;

    Bus bus{kernel};
    PDRIVER_OBJECT driverObject = nullptr;
    Text registryPath{u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TestDriver"};
    WDF_DRIVER_CONFIG driverConfig{};
    WDF_OBJECT_ATTRIBUTES driverAttributes{};
    WDFDRIVER driver = nullptr;
    std::function<void()> onUnload = [] {};

    /// EvtDriverDeviceAdd. The default makes a device, a filter if `makesFilter`, with `deviceAttributes`.
    std::function<NTSTATUS(PWDFDEVICE_INIT)> onAdd;
    std::function<NTSTATUS()> afterCreate = [] { return STATUS_SUCCESS; }; ///< in EvtDriverDeviceAdd
    std::function<void(PWDFDEVICE_INIT)> beforeCreate = [](PWDFDEVICE_INIT) {};
    bool makesFilter = true;
    WDF_OBJECT_ATTRIBUTES deviceAttributes{};
    WDFDEVICE device = nullptr;
    PDEVICE_OBJECT physical = nullptr;

  private:
    static NTSTATUS evtAdd(WDFDRIVER, PWDFDEVICE_INIT init);
    static VOID evtUnload(WDFDRIVER);
    NTSTATUS createDevice(PWDFDEVICE_INIT init);

    WDF_BIND_INFO bindInfo_{};
    bool bound_ = false;
    std::mutex eventsMutex_;
    std::vector<std::string> events_;
};

/// An IRP that a test sends by hand and keeps until the end.
class TestIrp {
  public:
    explicit TestIrp(CCHAR stackSize = 8) : irp(allocateIrp(stackSize, nullptr)) {}
    ~TestIrp() { freeIrp(irp); }
    TestIrp(const TestIrp &) = delete;
    TestIrp &operator=(const TestIrp &) = delete;

    /// A buffered device control of a user's process; the system buffer is `buffer`.
    TestIrp &control(ULONG code, void *buffer, ULONG input, ULONG output, UCHAR major = IRP_MJ_DEVICE_CONTROL);
    TestIrp &major(UCHAR major, UCHAR minor = 0);
    TestIrp &file(PFILE_OBJECT file);
    NTSTATUS send(PDEVICE_OBJECT device); ///< what the dispatch routine returned
    bool completed() const { return completed_; }
    void await();
    NTSTATUS status() const { return irp->IoStatus.Status; }
    ULONG_PTR information() const { return irp->IoStatus.Information; }
    bool cancel() { return cancelIrp(irp); }

    const PIRP irp;

  private:
    static NTSTATUS done(PDEVICE_OBJECT, PIRP, PVOID context);
    std::atomic<bool> completed_{false};
};

constexpr ULONG bufferedCode = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x801, METHOD_BUFFERED, FILE_ANY_ACCESS);

} // namespace sim::test
