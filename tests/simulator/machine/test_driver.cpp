#include "test_driver.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/irp_table.h"
#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"

#include <stdexcept>

namespace sim::machinetest {

namespace {

TestDriver *current = nullptr;

struct FilterExtension {
    PDEVICE_OBJECT lower;
    PDEVICE_OBJECT physical;
};

const char *minorName(UCHAR minor) {
    switch (minor) {
    case IRP_MN_START_DEVICE:
        return "start";
    case IRP_MN_QUERY_REMOVE_DEVICE:
        return "query-remove";
    case IRP_MN_REMOVE_DEVICE:
        return "remove";
    case IRP_MN_SURPRISE_REMOVAL:
        return "surprise";
    case IRP_MN_QUERY_CAPABILITIES:
        return "capabilities";
    case IRP_MN_QUERY_PNP_DEVICE_STATE:
        return "state";
    case IRP_MN_QUERY_DEVICE_RELATIONS:
        return "relations";
    default:
        return "other";
    }
}

std::string instanceOf(PDEVICE_OBJECT physical) {
    ULONG bytes = 0;
    DEVPROPTYPE type = 0;
    const DEVPROPKEY key{{0x78c34fc8, 0x104a, 0x4aca, {0x9e, 0xa4, 0x52, 0x4d, 0x52, 0x99, 0x6e, 0x57}}, 256};
    std::u16string text(200, u'\0');
    const NTSTATUS status = IoGetDevicePropertyData(physical, &key, LOCALE_NEUTRAL, 0, 400, text.data(), &bytes, &type);
    return NT_SUCCESS(status) ? toUtf8(text.substr(0, bytes / 2 - 1)) : "?";
}

NTSTATUS signalAndKeep(PDEVICE_OBJECT, PIRP, PVOID event) {
    KeSetEvent(static_cast<PKEVENT>(event), 0, FALSE);
    return STATUS_MORE_PROCESSING_REQUIRED;
}

NTSTATUS askBelow(FilterExtension &filter, PIRP irp) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    IoCopyCurrentIrpStackLocationToNext(irp);
    IoSetCompletionRoutine(irp, signalAndKeep, &event, TRUE, TRUE, TRUE);
    IoCallDriver(filter.lower, irp);
    KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
    if (irp->IoStatus.Status == STATUS_NOT_SUPPORTED) {
        irp->IoStatus.Status = STATUS_SUCCESS;
        irp->IoStatus.Information = 0;
    }
    irp->IoStatus.Information |= current->deviceState;
    const NTSTATUS status = irp->IoStatus.Status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS dispatch(PDEVICE_OBJECT device, PIRP irp) {
    FilterExtension filter = *static_cast<FilterExtension *>(device->DeviceExtension);
    PIO_STACK_LOCATION location = IoGetCurrentIrpStackLocation(irp);
    if (location->MajorFunction != IRP_MJ_PNP) {
        IoSkipCurrentIrpStackLocation(irp);
        return IoCallDriver(filter.lower, irp);
    }
    const std::string event = std::string(minorName(location->MinorFunction)) + " " + instanceOf(filter.physical);
    current->note(event);
    if (current->onPlugAndPlay) {
        current->onPlugAndPlay(event);
    }
    if (location->MinorFunction == IRP_MN_QUERY_PNP_DEVICE_STATE) {
        return askBelow(filter, irp);
    }
    const bool last = location->MinorFunction == IRP_MN_REMOVE_DEVICE && current->leavesStackOnRemove;
    IoSkipCurrentIrpStackLocation(irp);
    const NTSTATUS status = IoCallDriver(filter.lower, irp);
    if (last) {
        detachDevice(filter.lower);
        deleteDevice(device);
    }
    return status;
}

NTSTATUS addDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physical) {
    current->note("add " + instanceOf(physical));
    if (!NT_SUCCESS(current->addStatus)) {
        return current->addStatus;
    }
    if (current->attaches) {
        PDEVICE_OBJECT device = createDevice(driver, sizeof(FilterExtension), FILE_DEVICE_UNKNOWN, 0);
        auto *filter = static_cast<FilterExtension *>(device->DeviceExtension);
        filter->physical = physical;
        filter->lower = attachDevice(device, physical);
        device->Flags |= filter->lower->Flags & (DO_BUFFERED_IO | DO_DIRECT_IO | DO_POWER_PAGABLE);
        if (current->clearsInitializing) {
            device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
        }
    }
    if (current->onAdd) {
        current->onAdd(physical);
    }
    return STATUS_SUCCESS;
}

VOID unload(PDRIVER_OBJECT) {
    current->note("unload");
}

class TestImage final : public DriverImage {
  public:
    ~TestImage() override {
        if (current != nullptr) {
            current->note("unmapped");
        }
    }
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        current->note("entry " + toUtf8(view(*registryPath)));
        driver->DriverExtension->AddDevice = addDevice;
        driver->DriverUnload = unload;
        for (PDRIVER_DISPATCH &routine : driver->MajorFunction) {
            routine = dispatch;
        }
        return current->entryStatus;
    }
};

} // namespace

TestDriver::TestDriver() {
    if (current != nullptr) {
        throw std::logic_error("one test driver at a time");
    }
    current = this;
}

TestDriver::~TestDriver() {
    current = nullptr;
}

MachineOptions TestDriver::options() const {
    MachineOptions options;
    options.openImage = [] { return std::make_unique<TestImage>(); };
    return options;
}

std::vector<std::string> TestDriver::events() const {
    const std::lock_guard guard(mutex_);
    return events_;
}

void TestDriver::note(const std::string &event) {
    const std::lock_guard guard(mutex_);
    events_.push_back(event);
}

void TestDriver::clear() {
    const std::lock_guard guard(mutex_);
    events_.clear();
}

std::u16string property(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY which) {
    ULONG bytes = 0;
    if (IoGetDeviceProperty(device, which, 0, nullptr, &bytes) != STATUS_BUFFER_TOO_SMALL) {
        return {};
    }
    std::u16string text(bytes / 2, u'\0');
    IoGetDeviceProperty(device, which, bytes, text.data(), &bytes);
    while (!text.empty() && text.back() == u'\0') {
        text.pop_back();
    }
    return text;
}

ControlResult control(PDEVICE_OBJECT device, ULONG code, void *buffer, ULONG input, ULONG output) {
    PDEVICE_OBJECT top = IoGetAttachedDeviceReference(device);
    ControlResult result{};
    result.status = FsRtlIssueDeviceIoControl(top, code, 0, buffer, input, buffer, output, &result.information);
    ObDereferenceObject(top);
    return result;
}

} // namespace sim::machinetest
