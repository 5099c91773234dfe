#pragma once

#include <ntifs.h>

#include <cstdint>
#include <vector>

namespace sim {

/// Where the parts of a security descriptor of either form lie. Null = the part is absent (or a null ACL).
struct DescriptorParts {
    USHORT control = 0;
    const SID *owner = nullptr;
    const SID *group = nullptr;
    const ACL *sacl = nullptr;
    const ACL *dacl = nullptr;
};

DescriptorParts partsOf(const void *descriptor);
std::size_t selfRelativeBytes(const DescriptorParts &parts);
/// Lays the parts out behind the header: SACL, DACL, owner, group.
std::vector<std::uint8_t> makeSelfRelative(const DescriptorParts &parts);

/// Header and entries are sound. `firstFree` gets the offset behind the last entry.
bool validAcl(const ACL *acl, std::size_t &firstFree);
/// Calls `visit` for every entry of a sound ACL until it returns false.
template<typename Visitor>
void forEachAce(const ACL *acl, Visitor visit) {
    const auto *at = reinterpret_cast<const std::uint8_t *>(acl + 1);
    for (unsigned index = 0; index < acl->AceCount; ++index) {
        const auto *ace = reinterpret_cast<const ACE_HEADER *>(at);
        if (!visit(ace)) {
            return;
        }
        at += ace->AceSize;
    }
}

} // namespace sim
