#include "target.h"

#include "../kernel/dispatcher.h"
#include "../kernel/io.h"
#include "call.h"
#include "device.h"
#include "request.h"
#include "table.h"

namespace sim::framework {

Target::Target(Device &device, const void *callSite)
    : Object(device.client(), objectType, callSite), device(device), isDefault_(false), state_(State::closed) {}

Target::Target(Device &device, PDEVICE_OBJECT lower)
    : Object(device.client(), objectType, nullptr), device(device), isDefault_(true), state_(State::started),
      target_(lower), stackSize_(lower->StackSize) {}

Target::~Target() = default;

CCHAR Target::stackSize() const {
    std::lock_guard lock(mutex_);
    return state_ == State::started ? stackSize_ : CCHAR{0};
}

PDEVICE_OBJECT Target::destination() const {
    std::lock_guard lock(mutex_);
    return state_ == State::started ? target_ : nullptr;
}

namespace {

void askForTargetDevice(PIO_STACK_LOCATION location, void *) {
    location->Parameters.QueryDeviceRelations.Type = TargetDeviceRelation;
}

/// The physical device of a stack, referenced by the bus driver that answers. Null when nobody answered.
NTSTATUS queryTargetDevice(PDEVICE_OBJECT target, PDEVICE_OBJECT &physical) {
    const PnpResult result = sendPnpIrp(target, IRP_MN_QUERY_DEVICE_RELATIONS, askForTargetDevice, nullptr);
    physical = nullptr;
    if (NT_SUCCESS(result.status) && result.information) {
        auto *relations = reinterpret_cast<PDEVICE_RELATIONS>(result.information);
        physical = relations->Count > 0 ? relations->Objects[0] : nullptr;
        ExFreePool(relations);
    }
    return result.status;
}

} // namespace

// learn.microsoft.com: WdfIoTargetOpen; framework source: only lack of memory in the query fails the open
NTSTATUS Target::open(PDEVICE_OBJECT target) {
    {
        std::lock_guard lock(mutex_);
        if (state_ != State::closed) {
            return STATUS_INVALID_DEVICE_STATE;
        }
        state_ = State::opening;
    }
    PDEVICE_OBJECT physical = nullptr;
    const NTSTATUS status = queryTargetDevice(target, physical);
    std::lock_guard lock(mutex_);
    if (status == STATUS_INSUFFICIENT_RESOURCES) {
        state_ = State::closed;
        return status;
    }
    target_ = target;
    physical_ = physical;
    stackSize_ = target->StackSize;
    state_ = State::started;
    return STATUS_SUCCESS;
}

void Target::drain(State next) {
    std::vector<Request *> underWay;
    {
        std::lock_guard lock(mutex_);
        if (state_ == State::removed) {
            return;
        }
        state_ = next;
        underWay.assign(sent_.begin(), sent_.end());
        for (Request *request : underWay) {
            request->reference();
        }
    }
    for (Request *request : underWay) {
        request->cancelSent();
        request->dereference("WdfIoTargetClose", nullptr);
    }
    std::unique_lock lock(mutex_);
    waitOrStop(
        idle_, lock, [this] { return sent_.empty(); }, "WdfIoTargetClose: a sent request does not come back", nullptr);
}

void Target::forgetTarget() {
    if (physical_) {
        kernel().objects.dereference(physical_, nullptr);
    }
    physical_ = nullptr;
    target_ = nullptr;
    stackSize_ = 0;
}

void Target::close() {
    drain(State::closed);
    std::lock_guard lock(mutex_);
    forgetTarget();
}

void Target::afterCleanup() {
    drain(State::removed);
    std::lock_guard lock(mutex_);
    forgetTarget();
}

NTSTATUS Target::begin(Request &request, PDEVICE_OBJECT &destination) {
    std::lock_guard lock(mutex_);
    if (state_ != State::started) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    destination = target_;
    request.target = this;
    request.placeInTarget = sent_.insert(sent_.end(), &request);
    reference();
    return STATUS_SUCCESS;
}

void Target::ended(Request &request) {
    {
        std::lock_guard lock(mutex_);
        sent_.erase(request.placeInTarget);
        request.target = nullptr;
        idle_.notify_all();
    }
    dereference("WdfRequestSend", nullptr);
}

namespace {

// learn.microsoft.com: WdfIoTargetCreate
NTSTATUS targetCreate(PWDF_DRIVER_GLOBALS globals, WDFDEVICE deviceHandle, PWDF_OBJECT_ATTRIBUTES attributes,
                      WDFIOTARGET *handle) {
    const Call call{"WdfIoTargetCreate", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    Device &device = call.object<Device>(deviceHandle);
    call.pointer(handle, "IoTarget");
    *handle = nullptr;
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    Object &parent = call.parent(attributes, device);
    if (!parent.descendsFrom(device)) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *target = new Target(device, call.site);
    return call.publish(*target, attributes, parent, handle);
}

NTSTATUS checkParameters(const Call &call, const WDF_IO_TARGET_OPEN_PARAMS &parameters) {
    if (parameters.Size != sizeof(WDF_IO_TARGET_OPEN_PARAMS)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    if (parameters.Type != WdfIoTargetOpenUseExistingDevice) {
        notSimulated(call.routine, "opening a target otherwise than by its device object", call.site);
    }
    const bool removalCallbacks = parameters.EvtIoTargetQueryRemove || parameters.EvtIoTargetRemoveCanceled ||
                                  parameters.EvtIoTargetRemoveComplete;
    if (!parameters.TargetDeviceObject || (removalCallbacks && !parameters.TargetFileObject)) {
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfIoTargetOpen
NTSTATUS targetOpen(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET handle, PWDF_IO_TARGET_OPEN_PARAMS parameters) {
    const Call call{"WdfIoTargetOpen", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    Target &target = call.object<Target>(handle);
    call.pointer(parameters, "OpenParams");
    const NTSTATUS status = checkParameters(call, *parameters);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (parameters->TargetFileObject) {
        notSimulated(call.routine, "removal notification of a target opened with a file object", call.site);
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    return target.open(parameters->TargetDeviceObject);
}

// learn.microsoft.com: WdfIoTargetClose
VOID targetClose(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET handle) {
    const Call call{"WdfIoTargetClose", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    call.object<Target>(handle).close();
}

} // namespace

void installTargetRoutines(FunctionTable &table) {
    table.set(WdfIoTargetCreateTableIndex, PFN_WDFIOTARGETCREATE(targetCreate));
    table.set(WdfIoTargetOpenTableIndex, PFN_WDFIOTARGETOPEN(targetOpen));
    table.set(WdfIoTargetCloseTableIndex, PFN_WDFIOTARGETCLOSE(targetClose));
}

} // namespace sim::framework
