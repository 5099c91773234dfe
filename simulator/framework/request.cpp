#include "request.h"

#include "../kernel/io.h"
#include "../kernel/thread.h"
#include "call.h"
#include "device.h"
#include "driver.h"
#include "memory.h"
#include "queue.h"
#include "table.h"
#include "target.h"

namespace sim::framework {

Request::Request(Client &client, const void *callSite) : Object(client, objectType, callSite), ownsIrp_(true) {}

Request::Request(Device &device, PIRP irp)
    : Object(device.client(), objectType, nullptr), device_(&device), irp_(irp) {}

Request::~Request() {
    releaseFormat();
    if (ownsIrp_ && irp_) {
        freeIrp(irp_);
    }
}

const char *Request::deletionRefusal() const {
    if (presentable()) {
        return "a request from a queue is completed, not deleted";
    }
    return flight == Flight::underWay ? "the request is under way" : nullptr;
}

void Request::provideIrp(CCHAR stackSize) {
    if (irp_ && irp_->StackCount >= stackSize) {
        return;
    }
    if (irp_) {
        freeIrp(irp_);
    }
    irp_ = allocateIrp(stackSize, callSite);
    irp_->RequestorMode = KernelMode;
}

void Request::reuse(NTSTATUS status) {
    releaseFormat();
    refusal.reset();
    cancelledByTimer = false;
    if (ownsIrp_ && irp_) {
        reuseIrp(irp_, status);
        irp_->RequestorMode = KernelMode;
    } else if (irp_) {
        irp_->IoStatus.Status = status;
    }
}

void Request::releaseFormat() {
    for (Memory *memory : {format.input, format.output}) {
        if (memory) {
            memory->dereference("WdfRequestReuse", nullptr);
        }
    }
    if (irp_ && ownsIrp_ && format.systemBuffer) {
        irp_->AssociatedIrp.SystemBuffer = nullptr;
        irp_->UserBuffer = nullptr;
    }
    format = {};
}

namespace {

// learn.microsoft.com: WdfRequestCreate
NTSTATUS requestCreate(PWDF_DRIVER_GLOBALS globals, PWDF_OBJECT_ATTRIBUTES attributes, WDFIOTARGET targetHandle,
                       WDFREQUEST *handle) {
    const Call call{"WdfRequestCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.pointer(handle, "Request");
    *handle = nullptr;
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    Target *target = call.optionalObject<Target>(targetHandle);
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    const CCHAR stackSize = target ? target->stackSize() : CCHAR{0};
    if (target && stackSize == 0) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    auto *request = new Request(client, call.site);
    if (target) {
        request->provideIrp(stackSize);
    }
    return call.publish(*request, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfRequestReuse
NTSTATUS requestReuse(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, PWDF_REQUEST_REUSE_PARAMS parameters) {
    const Call call{"WdfRequestReuse", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = call.object<Request>(handle);
    call.pointer(parameters, "ReuseParams");
    if (parameters->Size != sizeof(WDF_REQUEST_REUSE_PARAMS)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    if (parameters->Flags & ~static_cast<ULONG>(WDF_REQUEST_REUSE_SET_NEW_IRP)) {
        return STATUS_INVALID_PARAMETER;
    }
    if (parameters->Flags & WDF_REQUEST_REUSE_SET_NEW_IRP) {
        notSimulated(call.routine, "reuse with an IRP of the driver's", call.site);
    }
    if (request.flight == Request::Flight::underWay) {
        call.violation("request", "the request is still under way");
    }
    request.reuse(parameters->Status);
    return STATUS_SUCCESS;
}

PIRP irpOf(const Call &call, const Request &request) {
    if (!request.irp()) {
        call.violation("request", "the request has no IRP: it was completed, or never formatted for a target");
    }
    return request.irp();
}

// learn.microsoft.com: WdfRequestGetStatus
NTSTATUS requestGetStatus(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestGetStatus", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    const Request &request = call.object<Request>(handle);
    if (request.refusal) {
        return *request.refusal;
    }
    return request.irp() ? request.irp()->IoStatus.Status : STATUS_SUCCESS;
}

// learn.microsoft.com: WdfRequestGetInformation
ULONG_PTR requestGetInformation(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestGetInformation", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    return irpOf(call, call.object<Request>(handle))->IoStatus.Information;
}

// learn.microsoft.com: WdfRequestWdmGetIrp
PIRP requestGetIrp(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestWdmGetIrp", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    return irpOf(call, call.object<Request>(handle));
}

} // namespace

void installRequestRoutines(FunctionTable &table) {
    table.set(WdfRequestCreateTableIndex, PFN_WDFREQUESTCREATE(requestCreate));
    table.set(WdfRequestReuseTableIndex, PFN_WDFREQUESTREUSE(requestReuse));
    table.set(WdfRequestGetStatusTableIndex, PFN_WDFREQUESTGETSTATUS(requestGetStatus));
    table.set(WdfRequestGetInformationTableIndex, PFN_WDFREQUESTGETINFORMATION(requestGetInformation));
    table.set(WdfRequestWdmGetIrpTableIndex, PFN_WDFREQUESTWDMGETIRP(requestGetIrp));
}

} // namespace sim::framework
