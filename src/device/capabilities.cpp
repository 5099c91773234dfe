#include "device/capabilities.h"

#include "support/framework_guards.h"

NTSTATUS queryCapabilities(WDFDEVICE owner, PDEVICE_OBJECT targetDevice, DEVICE_CAPABILITIES &capabilities) {
    DeviceIoTarget target;
    NTSTATUS status = target.open(owner, targetDevice);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    OwnedRequest request;
    status = WdfRequestCreate(WDF_NO_OBJECT_ATTRIBUTES, target.get(), request.receive());
    if (!NT_SUCCESS(status)) {
        return status;
    }

    RtlZeroMemory(&capabilities, sizeof(capabilities));
    capabilities.Size = sizeof(capabilities);
    capabilities.Version = 1;
    capabilities.Address = 0xFFFFFFFF;
    capabilities.UINumber = 0xFFFFFFFF;

    // A PnP request starts as not supported, so that its sender can tell whether anybody answered.
    WDF_REQUEST_REUSE_PARAMS reuse;
    WDF_REQUEST_REUSE_PARAMS_INIT(&reuse, WDF_REQUEST_REUSE_NO_FLAGS, STATUS_NOT_SUPPORTED);
    status = WdfRequestReuse(request.get(), &reuse);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    IO_STACK_LOCATION location{};
    location.MajorFunction = IRP_MJ_PNP;
    location.MinorFunction = IRP_MN_QUERY_CAPABILITIES;
    location.Parameters.DeviceCapabilities.Capabilities = &capabilities;
    WdfRequestWdmFormatUsingStackLocation(request.get(), &location);

    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    if (!WdfRequestSend(request.get(), target.get(), &options)) {
        return WdfRequestGetStatus(request.get());
    }
    return STATUS_SUCCESS;
}
