#include "bus.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/violation.h"

#include <algorithm>
#include <cstring>

namespace sim::test {

namespace {

Bus *current = nullptr;

std::string describe(const IO_STACK_LOCATION &location) {
    switch (location.MajorFunction) {
    case IRP_MJ_CREATE:
        return "create";
    case IRP_MJ_CLOSE:
        return "close";
    case IRP_MJ_CLEANUP:
        return "cleanup";
    case IRP_MJ_READ:
        return "read";
    case IRP_MJ_WRITE:
        return "write";
    case IRP_MJ_PNP:
        return "pnp " + std::to_string(location.MinorFunction);
    case IRP_MJ_POWER:
        return "power " + std::to_string(location.MinorFunction);
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        return "control " + hex(location.Parameters.DeviceIoControl.IoControlCode);
    default:
        return "major " + std::to_string(location.MajorFunction);
    }
}

} // namespace

std::vector<std::uint8_t> textBytes(std::u16string_view text) {
    std::vector<std::uint8_t> bytes((text.size() + 1) * sizeof(WCHAR));
    std::memcpy(bytes.data(), text.data(), text.size() * sizeof(WCHAR));
    return bytes;
}

Bus::Bus(Kernel &kernel) : kernel_(kernel), driver_(createDriverObject(u"TestBus")) {
    current = this;
    kernel.deviceProperties = this;
    std::fill(std::begin(driver_->MajorFunction), std::end(driver_->MajorFunction), dispatch);
}

Bus::~Bus() {
    for (PDEVICE_OBJECT device : devices_) {
        deleteDevice(device);
    }
    deleteDriverObject(driver_);
    kernel_.deviceProperties = nullptr;
    current = nullptr;
}

PDEVICE_OBJECT Bus::plug(std::u16string name) {
    PDEVICE_OBJECT device = createDevice(driver_, 0, FILE_DEVICE_MASS_STORAGE, FILE_DEVICE_SECURE_OPEN, name);
    device->Flags |= DO_DIRECT_IO | DO_POWER_PAGABLE;
    device->Flags &= ~DO_DEVICE_INITIALIZING;
    devices_.insert(device);
    if (!name.empty()) {
        properties.try_emplace(DevicePropertyPhysicalDeviceObjectName, textBytes(name));
    }
    return device;
}

void Bus::unplug(PDEVICE_OBJECT physical, bool surprise) {
    if (surprise) {
        pnp(physical, IRP_MN_SURPRISE_REMOVAL);
    }
    pnp(physical, IRP_MN_REMOVE_DEVICE);
    devices_.erase(physical);
    deleteDevice(physical);
}

NTSTATUS Bus::pnp(PDEVICE_OBJECT physical, UCHAR minor, ULONG_PTR *information) {
    const PnpResult result = sendPnpIrp(physical, minor, nullptr, nullptr);
    if (information) {
        *information = result.information;
    }
    return result.status;
}

NTSTATUS Bus::power(PDEVICE_OBJECT physical, POWER_STATE_TYPE type, int state) {
    const PDEVICE_OBJECT top = topOfStack(physical);
    const PIRP irp = allocateIrp(top->StackSize, nullptr);
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = IRP_MJ_POWER;
    location->MinorFunction = IRP_MN_SET_POWER;
    location->Parameters.Power.Type = type;
    location->Parameters.Power.State.DeviceState = static_cast<DEVICE_POWER_STATE>(state);
    const NTSTATUS status = sendAndWait(top, irp);
    freeIrp(irp);
    return status;
}

NTSTATUS Bus::dispatch(PDEVICE_OBJECT device, PIRP irp) {
    return current->serve(device, irp);
}

NTSTATUS Bus::serve(PDEVICE_OBJECT device, PIRP irp) {
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(irp);
    if (recording) {
        seen.push_back(describe(location));
    }
    if (const auto status = answer(irp)) {
        if (*status == STATUS_PENDING) {
            IoMarkIrpPending(irp);
            return STATUS_PENDING;
        }
        irp->IoStatus.Status = *status;
    } else if (location.MajorFunction == IRP_MJ_PNP && location.MinorFunction == IRP_MN_QUERY_DEVICE_RELATIONS &&
               location.Parameters.QueryDeviceRelations.Type == TargetDeviceRelation) {
        auto *relations =
            static_cast<PDEVICE_RELATIONS>(ExAllocatePool2(POOL_FLAG_PAGED, sizeof(DEVICE_RELATIONS), 0x206e7050));
        relations->Count = 1;
        relations->Objects[0] = device;
        kernel_.objects.reference(device, nullptr);
        irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
        irp->IoStatus.Status = STATUS_SUCCESS;
    } else if (location.MajorFunction != IRP_MJ_PNP || location.MinorFunction == IRP_MN_START_DEVICE ||
               location.MinorFunction <= IRP_MN_CANCEL_STOP_DEVICE ||
               location.MinorFunction == IRP_MN_SURPRISE_REMOVAL) {
        irp->IoStatus.Status = STATUS_SUCCESS;
    }
    const NTSTATUS status = irp->IoStatus.Status;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS Bus::registryProperty(PDEVICE_OBJECT, DEVICE_REGISTRY_PROPERTY property, std::vector<std::uint8_t> &out) {
    const auto found = properties.find(property);
    if (found == properties.end()) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    out = found->second;
    return STATUS_SUCCESS;
}

NTSTATUS Bus::deviceProperty(PDEVICE_OBJECT, const DEVPROPKEY &, std::vector<std::uint8_t> &, DEVPROPTYPE &) {
    return STATUS_OBJECT_NAME_NOT_FOUND;
}

} // namespace sim::test
