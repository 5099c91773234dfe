#include "driver/deny_write_security.h"

#include "support/kernel_handle.h"
#include "support/pool_memory.h"

namespace {

constexpr ULONG daclBytes = 256;
constexpr ULONG aceHeaderBytes = FIELD_OFFSET(ACCESS_DENIED_ACE, SidStart);

NTSTATUS openDevice(PDEVICE_OBJECT device, KernelHandle &handle) {
    // READ_CONTROL is what reading the old DACL through the handle demands.
    return ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, nullptr, WRITE_DAC | READ_CONTROL, nullptr, KernelMode,
                                 handle.receive());
}

ULONG aceSize() {
    return aceHeaderBytes + RtlLengthSid(SeExports->SeWorldSid);
}

/// The device's DACL as a self-relative descriptor.
NTSTATUS readDescriptor(HANDLE device, PoolMemory &descriptor) {
    ULONG needed = 0;
    NTSTATUS status = ZwQuerySecurityObject(device, DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
    if (status != STATUS_BUFFER_TOO_SMALL) {
        return status;
    }
    const ULONG size = needed + aceSize();
    descriptor = PoolMemory(POOL_FLAG_PAGED, size);
    if (!descriptor) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    return ZwQuerySecurityObject(device, DACL_SECURITY_INFORMATION, descriptor.get(), size, &needed);
}

/// Copies the descriptor's DACL into `dacl` and points `absolute` at it.
NTSTATUS makeAbsolute(const PoolMemory &descriptor, SECURITY_DESCRIPTOR &absolute, PACL dacl) {
    ULONG absoluteSize = sizeof(absolute);
    ULONG daclSize = daclBytes;
    ULONG saclSize = 0;
    ULONG ownerSize = 0;
    ULONG groupSize = 0;
    return RtlSelfRelativeToAbsoluteSD(descriptor.get(), &absolute, &absoluteSize, dacl, &daclSize, nullptr, &saclSize,
                                       nullptr, &ownerSize, nullptr, &groupSize);
}

NTSTATUS addDenyEntry(PACL dacl) {
    PoolMemory memory(POOL_FLAG_PAGED, aceSize());
    if (!memory) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto *ace = memory.as<ACCESS_DENIED_ACE>();
    ace->Header.AceType = ACCESS_DENIED_ACE_TYPE;
    ace->Header.AceFlags = 0;
    ace->Header.AceSize = static_cast<USHORT>(aceSize());
    ace->Mask = FILE_WRITE_DATA;
    NTSTATUS status = RtlCopySid(aceSize() - aceHeaderBytes, &ace->SidStart, SeExports->SeWorldSid);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    dacl->AclSize = daclBytes; // room for one more entry
    return RtlAddAce(dacl, ACL_REVISION, 0, ace, aceSize());
}

NTSTATUS writeDescriptor(HANDLE device, SECURITY_DESCRIPTOR &absolute) {
    ULONG size = 0;
    NTSTATUS status = RtlAbsoluteToSelfRelativeSD(&absolute, nullptr, &size);
    if (status != STATUS_BUFFER_TOO_SMALL) {
        return status;
    }
    PoolMemory descriptor(POOL_FLAG_PAGED, size);
    if (!descriptor) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    status = RtlAbsoluteToSelfRelativeSD(&absolute, descriptor.get(), &size);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    return ZwSetSecurityObject(device, DACL_SECURITY_INFORMATION, descriptor.get());
}

/// Whether the first entry of the descriptor's DACL is the one that addDenyEntry puts there.
bool isWriteDenied(const PoolMemory &descriptor) {
    BOOLEAN present = FALSE;
    BOOLEAN defaulted = FALSE;
    PACL dacl = nullptr;
    if (!NT_SUCCESS(RtlGetDaclSecurityDescriptor(descriptor.get(), &present, &dacl, &defaulted)) || !present ||
        dacl == nullptr || dacl->AceCount == 0) {
        return false;
    }
    const auto *ace = reinterpret_cast<const ACCESS_DENIED_ACE *>(dacl + 1);
    return ace->Header.AceType == ACCESS_DENIED_ACE_TYPE && ace->Header.AceSize == aceSize() &&
           (ace->Mask & FILE_WRITE_DATA) != 0 &&
           RtlCompareMemory(&ace->SidStart, SeExports->SeWorldSid, aceSize() - aceHeaderBytes) ==
               aceSize() - aceHeaderBytes;
}

NTSTATUS addDenyEntryTo(HANDLE device, const PoolMemory &descriptor) {
    PoolMemory dacl(POOL_FLAG_PAGED, daclBytes);
    if (!dacl) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    SECURITY_DESCRIPTOR absolute{};
    NTSTATUS status = makeAbsolute(descriptor, absolute, dacl.as<ACL>());
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = addDenyEntry(dacl.as<ACL>());
    if (!NT_SUCCESS(status)) {
        return status;
    }
    return writeDescriptor(device, absolute);
}

NTSTATUS denyWrite(PDEVICE_OBJECT device, bool onlyIfMissing) {
    KernelHandle handle;
    NTSTATUS status = openDevice(device, handle);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    PoolMemory descriptor;
    status = readDescriptor(handle.get(), descriptor);
    if (!NT_SUCCESS(status) || (onlyIfMissing && isWriteDenied(descriptor))) {
        return status;
    }
    return addDenyEntryTo(handle.get(), descriptor);
}

} // namespace

NTSTATUS denyWriteToEveryone(PDEVICE_OBJECT device) {
    return denyWrite(device, false);
}

NTSTATUS ensureWriteDenied(PDEVICE_OBJECT device) {
    return denyWrite(device, true);
}
