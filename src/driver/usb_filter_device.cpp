#include "driver/usb_filter_device.h"

#include "device/identifiers.h"
#include "driver/deny_write_security.h"
#include "driver/driver_context.h"
#include "driver/hub_ancestry.h"
#include "driver/rule_processing.h"
#include "log/log.h"
#include "support/device_reference.h"
#include "support/locks.h"
#include "support/placement_new.h"

namespace {

VOID onFilterCleanup(WDFOBJECT device) {
    UsbFilterDevice &filter = *usbFilterDeviceOf(device);
    FastMutexLock hold(getDriverContext().usbFilterMutex);
    if (filter.links.Flink != nullptr) { // not when the device could not be created
        RemoveEntryList(&filter.links);
    }
    filter.hardwareIds.release();
}

void list(UsbFilterDevice &filter) {
    filter.deviceObject = WdfDeviceWdmGetDeviceObject(filter.device);
    DriverContext &context = getDriverContext();
    FastMutexLock hold(context.usbFilterMutex);
    InsertTailList(&context.usbFilters, &filter.links);
}

/// This driver's filter in the stack of a device; empty when the stack has none.
DeviceReference findUsbFilterDevice(PDEVICE_OBJECT device) {
    PDRIVER_OBJECT driver = WdfDriverWdmGetDriverObject(WdfGetDriver());
    auto current = DeviceReference::adopt(IoGetAttachedDeviceReference(device));
    while (current && current.get()->DriverObject != driver) {
        current = DeviceReference::adopt(IoGetLowerDeviceObject(current.get()));
    }
    return current;
}

/// The context of a filter; null when its add is not over or it has ended. (Its device object, which may outlive the
/// framework's device, doesn't tell.) The caller holds the filters' mutex.
const UsbFilterDevice *listedFilter(PDEVICE_OBJECT filterObject) {
    const LIST_ENTRY &filters = getDriverContext().usbFilters;
    for (PLIST_ENTRY links = filters.Flink; links != &filters; links = links->Flink) {
        const auto *filter = CONTAINING_RECORD(links, UsbFilterDevice, links);
        if (filter->deviceObject == filterObject) {
            return filter;
        }
    }
    return nullptr;
}

/// Once the device add is over, Plug and Play gives every device of the stack the security that its class or its own
/// key configures, which replaces the access list made during the add. What is made here, after the start of the
/// devices below and before anybody can open the device, stays.
NTSTATUS onPrepareHardware(WDFDEVICE device, WDFCMRESLIST, WDFCMRESLIST) {
    if (!usbFilterDeviceOf(device)->denyWrite) {
        return STATUS_SUCCESS;
    }
    const NTSTATUS status = ensureWriteDenied(WdfDeviceWdmGetPhysicalDevice(device));
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to make mtp or ptp read only, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS attachFilter(PWDFDEVICE_INIT deviceInit, WDFDEVICE &device) {
    WdfFdoInitSetFilter(deviceInit);
    WDF_PNPPOWER_EVENT_CALLBACKS callbacks;
    WDF_PNPPOWER_EVENT_CALLBACKS_INIT(&callbacks);
    callbacks.EvtDevicePrepareHardware = onPrepareHardware;
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &callbacks);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, UsbFilterDevice);
    attributes.EvtCleanupCallback = onFilterCleanup;
    const NTSTATUS status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create device, status = 0x", hex(status));
        return status;
    }
    UsbFilterDevice &filter = *usbFilterDeviceOf(device); // zeroed by the framework
    filter.device = device;
    new (InPlace{&filter.hardwareIds}) KString;
    return STATUS_SUCCESS;
}

/// Root hubs, and devices that failed to enumerate, keep the filter and are not judged.
bool isLeftAlone(const UNICODE_STRING &hardwareIds) {
    LONG position = 0;
    const UNICODE_STRING first = nextMultiSzString(hardwareIds, position);
    const UNICODE_STRING rest = idWithoutBus(first);
    const UNICODE_STRING rootHub = literal(L"ROOT_HUB");
    return RtlPrefixUnicodeString(&rootHub, &rest, FALSE) || equalCaseSensitive(first, literal(L"USB\\RESET_FAILURE"));
}

NTSTATUS judge(UsbFilterDevice &filter, const UNICODE_STRING &hardwareIds) {
    const NTSTATUS status = filter.hardwareIds.copyFrom(hardwareIds);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to hardware id init, status = 0x", hex(status));
        return status;
    }
    recordUnlessBelowHub(WdfDeviceWdmGetPhysicalDevice(filter.device));
    return processRules(filter);
}

} // namespace

NTSTATUS createUsbFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"UsbFilterDevice create, hardwareIds = ", hardwareIds);
    WDFDEVICE device = nullptr;
    NTSTATUS status = attachFilter(deviceInit, device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    UsbFilterDevice &filter = *usbFilterDeviceOf(device);
    if (!isLeftAlone(hardwareIds)) {
        status = judge(filter, hardwareIds);
    }
    list(filter);
    return status;
}

UsbMode usbModeOf(PDEVICE_OBJECT device) {
    const DeviceReference filterObject = findUsbFilterDevice(device);
    if (!filterObject) {
        return UsbMode::Allowed;
    }
    FastMutexLock hold(getDriverContext().usbFilterMutex);
    const UsbFilterDevice *filter = listedFilter(filterObject.get());
    return filter != nullptr ? filter->mode : UsbMode::Unknown;
}

UsbFilterCopy::~UsbFilterCopy() {
    if (memory_) {
        get().~UsbFilterDevice();
    }
}

NTSTATUS UsbFilterCopy::take(PDEVICE_OBJECT device) {
    memory_ = PoolMemory(POOL_FLAG_NON_PAGED, sizeof(UsbFilterDevice));
    if (!memory_) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto *copy = new (InPlace{memory_.get()}) UsbFilterDevice{};
    const DeviceReference filterObject = findUsbFilterDevice(device);
    if (!filterObject) {
        return STATUS_NOT_FOUND;
    }
    FastMutexLock hold(getDriverContext().usbFilterMutex);
    const UsbFilterDevice *filter = listedFilter(filterObject.get());
    if (filter == nullptr) {
        return STATUS_DEVICE_NOT_READY;
    }
    copy->device = filter->device;
    copy->filterable = filter->filterable;
    copy->mode = filter->mode;
    copy->ruleType = filter->ruleType;
    copy->message = filter->message;
    return copy->hardwareIds.copyFrom(filter->hardwareIds);
}
