#include "descriptor_parts.h"

#include <cstring>

namespace sim {

namespace {

constexpr std::size_t roundUp(std::size_t bytes) {
    return (bytes + 3) & ~std::size_t{3};
}

std::size_t bytesOf(const SID *sid) {
    return sid == nullptr ? 0 : roundUp(8 + sid->SubAuthorityCount * sizeof(ULONG));
}

std::size_t bytesOf(const ACL *acl) {
    return acl == nullptr ? 0 : roundUp(acl->AclSize);
}

} // namespace

DescriptorParts partsOf(const void *descriptor) {
    SECURITY_DESCRIPTOR_RELATIVE header;
    std::memcpy(&header, descriptor, sizeof header);
    DescriptorParts parts;
    parts.control = header.Control;
    if ((header.Control & SE_SELF_RELATIVE) == 0) {
        SECURITY_DESCRIPTOR absolute;
        std::memcpy(&absolute, descriptor, sizeof absolute);
        parts.owner = static_cast<const SID *>(absolute.Owner);
        parts.group = static_cast<const SID *>(absolute.Group);
        parts.sacl = (header.Control & SE_SACL_PRESENT) != 0 ? absolute.Sacl : nullptr;
        parts.dacl = (header.Control & SE_DACL_PRESENT) != 0 ? absolute.Dacl : nullptr;
        return parts;
    }
    const auto *base = static_cast<const std::uint8_t *>(descriptor);
    const auto at = [base](ULONG offset) { return offset == 0 ? nullptr : base + offset; };
    parts.owner = reinterpret_cast<const SID *>(at(header.Owner));
    parts.group = reinterpret_cast<const SID *>(at(header.Group));
    parts.sacl = (header.Control & SE_SACL_PRESENT) != 0 ? reinterpret_cast<const ACL *>(at(header.Sacl)) : nullptr;
    parts.dacl = (header.Control & SE_DACL_PRESENT) != 0 ? reinterpret_cast<const ACL *>(at(header.Dacl)) : nullptr;
    return parts;
}

std::size_t selfRelativeBytes(const DescriptorParts &parts) {
    return sizeof(SECURITY_DESCRIPTOR_RELATIVE) + bytesOf(parts.sacl) + bytesOf(parts.dacl) + bytesOf(parts.owner) +
           bytesOf(parts.group);
}

std::vector<std::uint8_t> makeSelfRelative(const DescriptorParts &parts) {
    std::vector<std::uint8_t> bytes(selfRelativeBytes(parts));
    SECURITY_DESCRIPTOR_RELATIVE header{};
    header.Revision = SECURITY_DESCRIPTOR_REVISION;
    header.Control = static_cast<USHORT>(parts.control | SE_SELF_RELATIVE);
    std::size_t offset = sizeof header;
    const auto place = [&](const void *part, std::size_t size, std::size_t room) -> ULONG {
        if (part == nullptr) {
            return 0;
        }
        std::memcpy(bytes.data() + offset, part, size);
        offset += room;
        return static_cast<ULONG>(offset - room);
    };
    header.Sacl = place(parts.sacl, parts.sacl == nullptr ? 0 : parts.sacl->AclSize, bytesOf(parts.sacl));
    header.Dacl = place(parts.dacl, parts.dacl == nullptr ? 0 : parts.dacl->AclSize, bytesOf(parts.dacl));
    header.Owner = place(parts.owner, bytesOf(parts.owner), bytesOf(parts.owner));
    header.Group = place(parts.group, bytesOf(parts.group), bytesOf(parts.group));
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

bool validAcl(const ACL *acl, std::size_t &firstFree) {
    constexpr UCHAR lowestRevision = 2;
    constexpr UCHAR highestRevision = 4;
    constexpr std::size_t aceHeader = sizeof(ACE_HEADER);
    if (acl->AclRevision < lowestRevision || acl->AclRevision > highestRevision || acl->AclSize < sizeof(ACL) ||
        acl->AclSize % 2 != 0) {
        return false;
    }
    firstFree = sizeof(ACL);
    for (unsigned index = 0; index < acl->AceCount; ++index) {
        if (firstFree + aceHeader > acl->AclSize) {
            return false;
        }
        const auto *ace = reinterpret_cast<const ACE_HEADER *>(reinterpret_cast<const std::uint8_t *>(acl) + firstFree);
        if (ace->AceSize < aceHeader || firstFree + ace->AceSize > acl->AclSize) {
            return false;
        }
        // The kinds with a mask and a SID right behind it: allow, deny, audit, alarm.
        if (ace->AceType <= 3) {
            const auto *known = reinterpret_cast<const ACCESS_DENIED_ACE *>(ace);
            const auto *sid = reinterpret_cast<const SID *>(&known->SidStart);
            if (ace->AceSize % 4 != 0 || ace->AceSize < sizeof(ACCESS_DENIED_ACE) + 4 ||
                sid->Revision != SID_REVISION || 8 + bytesOf(sid) > ace->AceSize) {
                return false;
            }
        }
        firstFree += ace->AceSize;
    }
    return true;
}

} // namespace sim
