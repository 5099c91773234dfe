// Security descriptors and access control lists as drivers edit them.

#include "descriptor_parts.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstring>

using namespace sim;

namespace {

constexpr NTSTATUS unknownRevision = static_cast<NTSTATUS>(0xC0000058); ///< STATUS_UNKNOWN_REVISION

constexpr ULONG roundUp(ULONG bytes) {
    return (bytes + 3) & ~3u;
}

ULONG roomOf(const ACL *acl) {
    return acl == nullptr ? 0 : roundUp(acl->AclSize);
}

ULONG roomOf(const SID *sid) {
    return sid == nullptr ? 0 : static_cast<ULONG>(8 + sid->SubAuthorityCount * sizeof(ULONG));
}

/// The lowest ACL revision that may hold an entry of this type: object entries need 4, compound ones 3.
ULONG revisionFor(UCHAR aceType) {
    return aceType <= 3 ? 2 : aceType == 4 ? 3 : 4;
}

/// Counts the entries of a list that is to be added; nothing when it is ragged or too new for the revision.
bool countAces(const std::uint8_t *list, ULONG bytes, ULONG revision, USHORT &count) {
    count = 0;
    for (ULONG at = 0; at < bytes; ++count) {
        const auto *ace = reinterpret_cast<const ACE_HEADER *>(list + at);
        if (bytes - at < sizeof(ACE_HEADER) || ace->AceSize < sizeof(ACE_HEADER) || ace->AceSize > bytes - at ||
            revisionFor(ace->AceType) > revision) {
            return false;
        }
        at += ace->AceSize;
    }
    return true;
}

} // namespace

// learn.microsoft.com: RtlSelfRelativeToAbsoluteSD
extern "C" NTSTATUS RtlSelfRelativeToAbsoluteSD(PSECURITY_DESCRIPTOR selfRelative, PSECURITY_DESCRIPTOR absolute,
                                                PULONG absoluteBytes, PACL dacl, PULONG daclBytes, PACL sacl,
                                                PULONG saclBytes, PSID owner, PULONG ownerBytes, PSID primaryGroup,
                                                PULONG primaryGroupBytes) {
    constexpr auto routine = "RtlSelfRelativeToAbsoluteSD";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    const DescriptorParts parts = partsOf(selfRelative);
    if ((parts.control & SE_SELF_RELATIVE) == 0) {
        return STATUS_BAD_DESCRIPTOR_FORMAT;
    }
    PULONG const sizes[] = {absoluteBytes, daclBytes, saclBytes, ownerBytes, primaryGroupBytes};
    if (std::find(std::begin(sizes), std::end(sizes), nullptr) != std::end(sizes)) {
        bugCheck("argument", routine, "one of the five sizes is null, but all are read", callSite);
    }
    const ULONG needed[] = {sizeof(SECURITY_DESCRIPTOR), roomOf(parts.dacl), roomOf(parts.sacl), roomOf(parts.owner),
                            roomOf(parts.group)};
    const bool fits = std::equal(std::begin(sizes), std::end(sizes), std::begin(needed),
                                 [](PULONG given, ULONG wanted) { return *given >= wanted; });
    if (!fits) {
        for (std::size_t index = 0; index < std::size(sizes); ++index) {
            *sizes[index] = needed[index];
        }
        return STATUS_BUFFER_TOO_SMALL;
    }
    SECURITY_DESCRIPTOR result{};
    result.Revision = SECURITY_DESCRIPTOR_REVISION;
    result.Control = static_cast<USHORT>(parts.control & ~SE_SELF_RELATIVE);
    const auto copy = [&](void *destination, const void *part, std::size_t bytes) -> void * {
        if (part == nullptr) {
            return nullptr;
        }
        if (destination == nullptr) {
            bugCheck("argument", routine, "no buffer for a part that is present", callSite);
        }
        kernel().pool.checkAccess(destination, bytes, routine, callSite);
        return std::memcpy(destination, part, bytes);
    };
    result.Owner = copy(owner, parts.owner, roomOf(parts.owner));
    result.Group = copy(primaryGroup, parts.group, roomOf(parts.group));
    result.Sacl = static_cast<PACL>(copy(sacl, parts.sacl, parts.sacl == nullptr ? 0 : parts.sacl->AclSize));
    result.Dacl = static_cast<PACL>(copy(dacl, parts.dacl, parts.dacl == nullptr ? 0 : parts.dacl->AclSize));
    kernel().pool.checkAccess(absolute, sizeof result, routine, callSite);
    std::memcpy(absolute, &result, sizeof result);
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlAbsoluteToSelfRelativeSD
extern "C" NTSTATUS RtlAbsoluteToSelfRelativeSD(PSECURITY_DESCRIPTOR absolute, PSECURITY_DESCRIPTOR selfRelative,
                                                PULONG bytes) {
    constexpr auto routine = "RtlAbsoluteToSelfRelativeSD";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    const DescriptorParts parts = partsOf(absolute);
    if ((parts.control & SE_SELF_RELATIVE) != 0) {
        return STATUS_BAD_DESCRIPTOR_FORMAT;
    }
    const ULONG given = *bytes;
    *bytes = static_cast<ULONG>(selfRelativeBytes(parts));
    if (given < *bytes) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    kernel().pool.checkAccess(selfRelative, *bytes, routine, callSite);
    const std::vector<std::uint8_t> result = makeSelfRelative(parts);
    std::memcpy(selfRelative, result.data(), result.size());
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlAddAce. Which revision the list has afterwards is recalled.
extern "C" NTSTATUS RtlAddAce(PACL acl, ULONG revision, ULONG index, PVOID aceList, ULONG aceListBytes) {
    constexpr auto routine = "RtlAddAce";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    kernel().pool.checkAccess(acl, sizeof *acl, routine, callSite);
    std::size_t firstFree = 0;
    USHORT added = 0;
    if (!validAcl(acl, firstFree) || revision < 2 || revision > 4 ||
        !countAces(static_cast<const std::uint8_t *>(aceList), aceListBytes, std::max<ULONG>(revision, 2), added)) {
        return STATUS_INVALID_PARAMETER;
    }
    if (firstFree + aceListBytes > acl->AclSize) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    kernel().pool.checkAccess(acl, acl->AclSize, routine, callSite);
    auto *const base = reinterpret_cast<std::uint8_t *>(acl);
    std::size_t at = sizeof(ACL);
    for (ULONG passed = 0; passed < index && passed < acl->AceCount; ++passed) {
        at += reinterpret_cast<const ACE_HEADER *>(base + at)->AceSize;
    }
    std::memmove(base + at + aceListBytes, base + at, firstFree - at);
    std::memcpy(base + at, aceList, aceListBytes);
    acl->AceCount = static_cast<USHORT>(acl->AceCount + added);
    acl->AclRevision = static_cast<UCHAR>(std::max<ULONG>(acl->AclRevision, revision));
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlGetDaclSecurityDescriptor
extern "C" NTSTATUS RtlGetDaclSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, PBOOLEAN present, PACL *dacl,
                                                 PBOOLEAN defaulted) {
    requireIrqlAtMost(APC_LEVEL, "RtlGetDaclSecurityDescriptor", SIM_CALL_SITE);
    if (*static_cast<const UCHAR *>(descriptor) != SECURITY_DESCRIPTOR_REVISION) {
        return unknownRevision;
    }
    const DescriptorParts parts = partsOf(descriptor);
    *present = (parts.control & SE_DACL_PRESENT) != 0;
    if (*present) {
        *dacl = const_cast<PACL>(parts.dacl);
        *defaulted = (parts.control & SE_DACL_DEFAULTED) != 0;
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: RtlSetDaclSecurityDescriptor
extern "C" NTSTATUS RtlSetDaclSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, BOOLEAN present, PACL dacl,
                                                 BOOLEAN defaulted) {
    requireIrqlAtMost(APC_LEVEL, "RtlSetDaclSecurityDescriptor", SIM_CALL_SITE);
    auto *absolute = static_cast<SECURITY_DESCRIPTOR *>(descriptor);
    if (absolute->Revision != SECURITY_DESCRIPTOR_REVISION) {
        return unknownRevision;
    }
    if ((absolute->Control & SE_SELF_RELATIVE) != 0) {
        return STATUS_INVALID_SECURITY_DESCR;
    }
    absolute->Control &= static_cast<USHORT>(~(SE_DACL_PRESENT | SE_DACL_DEFAULTED));
    if (present) {
        absolute->Control |= static_cast<USHORT>(SE_DACL_PRESENT | (defaulted ? SE_DACL_DEFAULTED : 0));
        absolute->Dacl = dacl;
    }
    return STATUS_SUCCESS;
}
