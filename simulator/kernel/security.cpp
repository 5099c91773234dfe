// Security of device objects: descriptors, access checks, and the system calls that read and change them.

#include "security.h"

#include "descriptor_parts.h"
#include "generic_rights.h"
#include "internals.h"
#include "io.h"
#include "kernel.h"
#include "sids.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr USHORT daclControlBits = SE_DACL_PRESENT | SE_DACL_DEFAULTED | SE_DACL_PROTECTED | 0x0400;
constexpr USHORT saclControlBits = SE_SACL_PRESENT | 0x0020 | 0x2000 | 0x0800;

bool listed(const SID *sid, const std::vector<std::string> &sids) {
    return std::find(sids.begin(), sids.end(), sidText(sid)) != sids.end();
}

/// The parts of `from` that `information` names, in a descriptor of their own.
DescriptorParts selectParts(const DescriptorParts &from, SECURITY_INFORMATION information) {
    DescriptorParts selected;
    selected.owner = (information & OWNER_SECURITY_INFORMATION) != 0 ? from.owner : nullptr;
    selected.group = (information & GROUP_SECURITY_INFORMATION) != 0 ? from.group : nullptr;
    if ((information & DACL_SECURITY_INFORMATION) != 0) {
        selected.dacl = from.dacl;
        selected.control |= from.control & daclControlBits;
    }
    if ((information & SACL_SECURITY_INFORMATION) != 0) {
        selected.sacl = from.sacl;
        selected.control |= from.control & saclControlBits;
    }
    return selected;
}

/// `old` with the parts that `information` names taken from `change`.
std::vector<std::uint8_t> merge(const std::vector<std::uint8_t> &old, const DescriptorParts &change,
                                SECURITY_INFORMATION information) {
    const SECURITY_INFORMATION all =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
    const DescriptorParts before = old.empty() ? DescriptorParts{} : partsOf(old.data());
    DescriptorParts merged = selectParts(before, all & ~information);
    const DescriptorParts changed = selectParts(change, information);
    merged.control |= changed.control;
    merged.owner = changed.owner != nullptr ? changed.owner : merged.owner;
    merged.group = changed.group != nullptr ? changed.group : merged.group;
    merged.dacl = changed.dacl != nullptr ? changed.dacl : merged.dacl;
    merged.sacl = changed.sacl != nullptr ? changed.sacl : merged.sacl;
    return makeSelfRelative(merged);
}

NTSTATUS checkDescriptor(const void *descriptor, const DescriptorParts &parts) {
    std::size_t firstFree = 0;
    if (*static_cast<const UCHAR *>(descriptor) != SECURITY_DESCRIPTOR_REVISION) {
        return STATUS_INVALID_SECURITY_DESCR;
    }
    const bool sound = (parts.dacl == nullptr || validAcl(parts.dacl, firstFree)) &&
                       (parts.sacl == nullptr || validAcl(parts.sacl, firstFree));
    return sound ? STATUS_SUCCESS : STATUS_INVALID_ACL;
}

/// The device that a handle is open on, when the handle carries the rights; otherwise the status to fail with.
NTSTATUS deviceOfHandle(HANDLE handle, ACCESS_MASK needed, const char *routine, const void *callSite,
                        PDEVICE_OBJECT &device) {
    ACCESS_MASK granted = 0;
    void *body = kernel().objects.bodyOf(handle, &granted);
    if (body == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    if (kernel().objects.typeOf(body, routine, callSite) != ObjectType::device) {
        notSimulated(routine, "security of an object that is no device", callSite);
    }
    device = static_cast<PDEVICE_OBJECT>(body);
    return (needed & ~granted) == 0 ? STATUS_SUCCESS : STATUS_ACCESS_DENIED;
}

} // namespace

std::vector<std::uint8_t> deviceSecurity(PDEVICE_OBJECT device) {
    DeviceTable &table = kernel().internals->devices;
    std::lock_guard lock(table.mutex);
    return table.devices.at(device).security;
}

void setDeviceSecurity(PDEVICE_OBJECT device, std::vector<std::uint8_t> selfRelative) {
    DeviceTable &table = kernel().internals->devices;
    std::lock_guard lock(table.mutex);
    std::vector<std::uint8_t> &security = table.devices.at(device).security;
    security = std::move(selfRelative);
    device->SecurityDescriptor = security.empty() ? nullptr : security.data();
}

bool accessGranted(PDEVICE_OBJECT device, ACCESS_MASK wanted, const std::vector<std::string> &sids) {
    if ((wanted & MAXIMUM_ALLOWED) != 0) {
        notSimulated("SeAccessCheck", "MAXIMUM_ALLOWED", nullptr);
    }
    const std::vector<std::uint8_t> security = deviceSecurity(device);
    const DescriptorParts parts = security.empty() ? DescriptorParts{} : partsOf(security.data());
    if (parts.dacl == nullptr) {
        return true;
    }
    ACCESS_MASK missing = mapGenericRights(wanted);
    if (parts.owner != nullptr && listed(parts.owner, sids)) {
        missing &= ~static_cast<ACCESS_MASK>(READ_CONTROL | WRITE_DAC);
    }
    bool denied = false;
    forEachAce(parts.dacl, [&](const ACE_HEADER *header) {
        constexpr UCHAR inheritOnly = 0x08;
        const auto *ace = reinterpret_cast<const ACCESS_DENIED_ACE *>(header);
        if (header->AceType > ACCESS_DENIED_ACE_TYPE || (header->AceFlags & inheritOnly) != 0 ||
            !listed(reinterpret_cast<const SID *>(&ace->SidStart), sids)) {
            return true;
        }
        const ACCESS_MASK mask = mapGenericRights(ace->Mask);
        denied = header->AceType == ACCESS_DENIED_ACE_TYPE && (mask & missing) != 0;
        missing &= ~mask;
        return !denied && missing != 0;
    });
    return !denied && missing == 0;
}

} // namespace sim

using namespace sim;

// learn.microsoft.com: ZwQuerySecurityObject
extern "C" NTSTATUS ZwQuerySecurityObject(HANDLE handle, SECURITY_INFORMATION information,
                                          PSECURITY_DESCRIPTOR descriptor, ULONG bytes, PULONG neededBytes) {
    constexpr auto routine = "ZwQuerySecurityObject";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    const ACCESS_MASK needed =
        READ_CONTROL | ((information & SACL_SECURITY_INFORMATION) != 0 ? ACCESS_SYSTEM_SECURITY : 0);
    PDEVICE_OBJECT device = nullptr;
    if (const NTSTATUS status = deviceOfHandle(handle, needed, routine, callSite, device); !NT_SUCCESS(status)) {
        return status;
    }
    const std::vector<std::uint8_t> stored = deviceSecurity(device);
    const std::vector<std::uint8_t> answer =
        makeSelfRelative(selectParts(stored.empty() ? DescriptorParts{} : partsOf(stored.data()), information));
    *neededBytes = static_cast<ULONG>(answer.size());
    if (answer.size() > bytes) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    kernel().pool.checkAccess(descriptor, answer.size(), routine, callSite);
    std::memcpy(descriptor, answer.data(), answer.size());
    return STATUS_SUCCESS;
}

// learn.microsoft.com: ZwSetSecurityObject. On a Plug and Play stack every device that is attached at that moment gets
// the descriptor.
extern "C" NTSTATUS ZwSetSecurityObject(HANDLE handle, SECURITY_INFORMATION information,
                                        PSECURITY_DESCRIPTOR descriptor) {
    constexpr auto routine = "ZwSetSecurityObject";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    constexpr SECURITY_INFORMATION ownership = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION;
    const ACCESS_MASK needed = ((information & DACL_SECURITY_INFORMATION) != 0 ? WRITE_DAC : 0) |
                               ((information & ownership) != 0 ? WRITE_OWNER : 0) |
                               ((information & SACL_SECURITY_INFORMATION) != 0 ? ACCESS_SYSTEM_SECURITY : 0);
    PDEVICE_OBJECT device = nullptr;
    if (const NTSTATUS status = deviceOfHandle(handle, needed, routine, callSite, device); !NT_SUCCESS(status)) {
        return status;
    }
    const DescriptorParts change = partsOf(descriptor);
    if (const NTSTATUS status = checkDescriptor(descriptor, change); !NT_SUCCESS(status)) {
        return status;
    }
    std::lock_guard lock(kernel().internals->devices.mutex);
    for (PDEVICE_OBJECT each = bottomOfStack(device); each != nullptr; each = each->AttachedDevice) {
        setDeviceSecurity(each, merge(deviceSecurity(each), change, information));
    }
    return STATUS_SUCCESS;
}
