// Property and interface queries of the I/O manager; the machine knows the answers.

#include "internals.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <cstring>

using namespace sim;

namespace {

constexpr ULONG interfaceListTag = 'nepP';
constexpr ULONG includeNonActive = 1; ///< DEVICE_INTERFACE_INCLUDE_NONACTIVE

DevicePropertyProvider &provider(const char *routine, const void *callSite) {
    if (kernel().deviceProperties == nullptr) {
        notSimulated(routine, "the machine has no Plug and Play manager", callSite);
    }
    return *kernel().deviceProperties;
}

/// False for a physical device object whose device has been removed, which no caller can exclude; what never was one
/// stops the run.
bool isEnumerated(DevicePropertyProvider &answers, PDEVICE_OBJECT device, const char *routine, const void *callSite) {
    if (answers.isPhysicalDevice(device)) {
        return true;
    }
    if (!answers.wasPhysicalDevice(device)) {
        bugCheck("physical device object", routine,
                 hex(reinterpret_cast<std::uintptr_t>(device)) + " is none that is enumerated (bug check 0xCA, 2)",
                 callSite);
    }
    return false;
}

} // namespace

// learn.microsoft.com: IoGetDeviceProperty
extern "C" NTSTATUS IoGetDeviceProperty(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY property, ULONG bufferBytes,
                                        PVOID buffer, PULONG resultBytes) {
    constexpr auto routine = "IoGetDeviceProperty";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    requireDevice(device, routine, callSite);
    DevicePropertyProvider &answers = provider(routine, callSite);
    if (!isEnumerated(answers, device, routine, callSite)) {
        return STATUS_INVALID_DEVICE_REQUEST; // recalled
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    std::vector<std::uint8_t> value;
    const NTSTATUS status = answers.registryProperty(device, property, value);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    *resultBytes = static_cast<ULONG>(value.size());
    if (value.size() > bufferBytes) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    if (!value.empty()) {
        kernel().pool.checkAccess(buffer, bufferBytes, routine, callSite);
        std::memcpy(buffer, value.data(), value.size());
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: IoGetDevicePropertyData
extern "C" NTSTATUS IoGetDevicePropertyData(PDEVICE_OBJECT device, const DEVPROPKEY *key, LCID locale, ULONG flags,
                                            ULONG bufferBytes, PVOID buffer, PULONG requiredBytes, PDEVPROPTYPE type) {
    constexpr auto routine = "IoGetDevicePropertyData";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    requireDevice(device, routine, callSite);
    if (flags != 0) {
        bugCheck("argument", routine, "Flags is reserved but was " + hex(flags), callSite);
    }
    DevicePropertyProvider &answers = provider(routine, callSite);
    if (!isEnumerated(answers, device, routine, callSite)) {
        return STATUS_INVALID_DEVICE_REQUEST; // recalled
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    std::vector<std::uint8_t> value;
    DEVPROPTYPE valueType = DEVPROP_TYPE_EMPTY;
    const NTSTATUS status = locale == LOCALE_NEUTRAL ? answers.deviceProperty(device, *key, value, valueType)
                                                     : STATUS_OBJECT_NAME_NOT_FOUND;
    const bool found = NT_SUCCESS(status);
    *requiredBytes = found ? static_cast<ULONG>(value.size()) : 0;
    *type = found ? valueType : DEVPROP_TYPE_EMPTY;
    if (!found) {
        return status;
    }
    if (value.size() > bufferBytes) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    if (!value.empty()) {
        kernel().pool.checkAccess(buffer, bufferBytes, routine, callSite);
        std::memcpy(buffer, value.data(), value.size());
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: IoGetDeviceInterfaces. "None" is a list of one NUL, never null.
extern "C" NTSTATUS IoGetDeviceInterfaces(const GUID *interfaceClass, PDEVICE_OBJECT physicalDevice, ULONG flags,
                                          PZZWSTR *symbolicLinks) {
    constexpr auto routine = "IoGetDeviceInterfaces";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    DevicePropertyProvider &answers = provider(routine, callSite);
    if (physicalDevice != nullptr) {
        requireDevice(physicalDevice, routine, callSite);
        if (!answers.isPhysicalDevice(physicalDevice)) {
            return STATUS_INVALID_DEVICE_REQUEST;
        }
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    std::u16string list;
    for (const std::u16string &link :
         answers.interfaces(physicalDevice, *interfaceClass, (flags & includeNonActive) == 0)) {
        list += link;
        list += u'\0';
    }
    list += u'\0';
    const std::size_t bytes = list.size() * sizeof(WCHAR);
    *symbolicLinks = static_cast<PZZWSTR>(kernel().pool.allocate(bytes, interfaceListTag, true, false, true, callSite));
    std::memcpy(*symbolicLinks, list.data(), bytes);
    return STATUS_SUCCESS;
}
