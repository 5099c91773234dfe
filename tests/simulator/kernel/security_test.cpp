#include "kernel_fixture.h"
#include "simulator/kernel/security.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace sim::test {

namespace {

constexpr const char *systemOnly = "D:P(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)";

/// An entry that denies `mask` to everyone, as a driver composes it.
struct DenyAce {
    alignas(4) unsigned char bytes[20];
    explicit DenyAce(ACCESS_MASK mask) {
        auto *ace = reinterpret_cast<ACCESS_DENIED_ACE *>(bytes);
        ace->Header = {ACCESS_DENIED_ACE_TYPE, 0, sizeof bytes};
        ace->Mask = mask;
        std::memcpy(&ace->SidStart, SeExports->SeWorldSid, 12);
    }
};

class SecurityTest : public KernelTest {
  protected:
    SecurityTest() : driver(createDriverObject(u"Bus")), device(createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0)) {
        setDeviceSecurity(device, securityFromSddl(systemOnly));
    }

    HANDLE open(ACCESS_MASK access) {
        HANDLE handle = nullptr;
        ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, nullptr, access, nullptr, KernelMode, &handle);
        return handle;
    }
    std::string text(PDEVICE_OBJECT object) { return sddlOf(deviceSecurity(object)); }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT device;
};

TEST_F(SecurityTest, textFormRoundTrips) {
    for (const char *sddl :
         {systemOnly, "D:P", "D:(D;;0x2;;;WD)(A;;0x1200a9;;;AU)", "O:BAG:SYD:PAI(A;CIOI;0x1f01ff;;;S-1-5-21-1-2-3-500)",
          "O:SYD:(A;;0x1;;;AC)S:(AU;SA;0x1;;;WD)"}) {
        std::string expected = sddl;
        if (const auto at = expected.find("CIOI"); at != std::string::npos) {
            expected.replace(at, 4, "OICI");
        }
        EXPECT_EQ(sddlOf(securityFromSddl(sddl)), expected);
    }
    EXPECT_EQ(sddlOf(securityFromSddl("D:(A;;GA;;;SY)")), "D:(A;;0x10000000;;;SY)");
    EXPECT_EQ(sddlOf(securityFromSddl("D:(A;;FRSD;;;SY)")), "D:(A;;0x130089;;;SY)");
    EXPECT_TRUE(securityFromSddl("").empty());
    EXPECT_EQ(sddlOf({}), "");
    for (const char *bad : {"X", "D:(A;;0x1;;;QQ)", "D:(A;;0x1;;;SY", "D:(Z;;0x1;;;SY)", "D:(A;;ZZ;;;SY)"}) {
        EXPECT_THROW(securityFromSddl(bad), std::invalid_argument) << bad;
    }
}

TEST_F(SecurityTest, wellKnownSids) {
    EXPECT_EQ(RtlLengthSid(SeExports->SeWorldSid), 12u);
    EXPECT_EQ(RtlLengthSid(SeExports->SeAliasAdminsSid), 16u);
    alignas(4) unsigned char copy[12];
    EXPECT_EQ(RtlCopySid(11, copy, SeExports->SeWorldSid), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(RtlCopySid(12, copy, SeExports->SeWorldSid), STATUS_SUCCESS);
    EXPECT_EQ(std::memcmp(copy, SeExports->SeWorldSid, 12), 0);
}

TEST_F(SecurityTest, queryProbesAndReturnsWhatWasAsked) {
    HANDLE handle = open(READ_CONTROL);
    ULONG needed = 0;
    EXPECT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, nullptr, 0, &needed), STATUS_BUFFER_TOO_SMALL);
    std::vector<std::uint8_t> answer(needed);
    EXPECT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, answer.data(), needed, &needed), STATUS_SUCCESS);
    EXPECT_EQ(sddlOf(answer), systemOnly);
    const auto *header = reinterpret_cast<const SECURITY_DESCRIPTOR_RELATIVE *>(answer.data());
    EXPECT_EQ(header->Owner, 0u);
    EXPECT_EQ(header->Group, 0u);
    EXPECT_EQ(header->Sacl, 0u);
    EXPECT_NE(header->Control & SE_SELF_RELATIVE, 0);
    ZwClose(handle);
    handle = open(WRITE_DAC);
    EXPECT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, nullptr, 0, &needed), STATUS_ACCESS_DENIED);
    ZwClose(handle);
    EXPECT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, nullptr, 0, &needed), STATUS_INVALID_HANDLE);
}

TEST_F(SecurityTest, objectWithoutDescriptorIsOpenToAll) {
    setDeviceSecurity(device, {});
    EXPECT_EQ(device->SecurityDescriptor, nullptr);
    HANDLE handle = open(READ_CONTROL);
    ULONG needed = 0;
    alignas(4) unsigned char answer[20];
    EXPECT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, answer, sizeof answer, &needed), STATUS_SUCCESS);
    EXPECT_EQ(needed, 20u);
    BOOLEAN present = TRUE;
    BOOLEAN defaulted = FALSE;
    PACL dacl = nullptr;
    EXPECT_EQ(RtlGetDaclSecurityDescriptor(answer, &present, &dacl, &defaulted), STATUS_SUCCESS);
    EXPECT_FALSE(present);
    EXPECT_TRUE(accessGranted(device, FILE_WRITE_DATA, {"S-1-1-0"}));
    ZwClose(handle);
}

TEST_F(SecurityTest, readEditWrite) {
    HANDLE handle = open(READ_CONTROL | WRITE_DAC);
    alignas(8) unsigned char relative[256];
    ULONG bytes = 0;
    ASSERT_EQ(ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, relative, sizeof relative, &bytes),
              STATUS_SUCCESS);
    SECURITY_DESCRIPTOR absolute;
    alignas(4) unsigned char daclMemory[256];
    auto *dacl = reinterpret_cast<PACL>(daclMemory);
    ULONG sizes[] = {sizeof absolute, sizeof daclMemory, 0, 0, 0};
    ASSERT_EQ(RtlSelfRelativeToAbsoluteSD(relative, &absolute, &sizes[0], dacl, &sizes[1], nullptr, &sizes[2], nullptr,
                                          &sizes[3], nullptr, &sizes[4]),
              STATUS_SUCCESS);
    EXPECT_EQ(sizes[1], sizeof daclMemory);
    DenyAce deny(FILE_WRITE_DATA);
    EXPECT_EQ(RtlAddAce(dacl, ACL_REVISION, 0, deny.bytes, sizeof deny.bytes), STATUS_BUFFER_TOO_SMALL);
    dacl->AclSize = static_cast<USHORT>(dacl->AclSize + sizeof deny.bytes);
    EXPECT_EQ(RtlAddAce(dacl, ACL_REVISION, 0, deny.bytes, sizeof deny.bytes), STATUS_SUCCESS);
    EXPECT_EQ(RtlSetDaclSecurityDescriptor(&absolute, TRUE, dacl, FALSE), STATUS_SUCCESS);
    bytes = 0;
    EXPECT_EQ(RtlAbsoluteToSelfRelativeSD(&absolute, nullptr, &bytes), STATUS_BUFFER_TOO_SMALL);
    std::vector<std::uint8_t> edited(bytes);
    EXPECT_EQ(RtlAbsoluteToSelfRelativeSD(&absolute, edited.data(), &bytes), STATUS_SUCCESS);
    EXPECT_EQ(ZwSetSecurityObject(handle, DACL_SECURITY_INFORMATION, edited.data()), STATUS_SUCCESS);
    EXPECT_EQ(text(device), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)");
    EXPECT_EQ(ZwSetSecurityObject(handle, DACL_SECURITY_INFORMATION, &absolute), STATUS_SUCCESS);
    ZwClose(handle);
}

TEST_F(SecurityTest, setReachesTheWholeStackOfThatMoment) {
    PDEVICE_OBJECT function = createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
    PDEVICE_OBJECT later = createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
    attachDevice(function, device);
    HANDLE handle = open(WRITE_DAC);
    auto change = securityFromSddl("D:(A;;0x1;;;WD)");
    EXPECT_EQ(ZwSetSecurityObject(handle, DACL_SECURITY_INFORMATION, change.data()), STATUS_SUCCESS);
    attachDevice(later, device);
    EXPECT_EQ(text(device), "D:(A;;0x1;;;WD)");
    EXPECT_EQ(text(function), "D:(A;;0x1;;;WD)");
    EXPECT_EQ(text(later), "");
    ZwClose(handle);
}

TEST_F(SecurityTest, setKeepsTheOtherParts) {
    setDeviceSecurity(device, securityFromSddl("O:BAG:SYD:P(A;;0x1f01ff;;;SY)"));
    HANDLE handle = open(WRITE_DAC);
    auto change = securityFromSddl("O:WDD:(A;;0x1;;;WD)");
    EXPECT_EQ(ZwSetSecurityObject(handle, DACL_SECURITY_INFORMATION, change.data()), STATUS_SUCCESS);
    EXPECT_EQ(text(device), "O:BAG:SYD:(A;;0x1;;;WD)");
    ZwClose(handle);
}

TEST_F(SecurityTest, setFailures) {
    HANDLE reader = open(READ_CONTROL);
    auto good = securityFromSddl("D:(A;;0x1;;;WD)");
    EXPECT_EQ(ZwSetSecurityObject(reader, DACL_SECURITY_INFORMATION, good.data()), STATUS_ACCESS_DENIED);
    ZwClose(reader);
    HANDLE writer = open(WRITE_DAC);
    auto badAcl = good;
    badAcl[20] = 9; // the ACL's revision
    EXPECT_EQ(ZwSetSecurityObject(writer, DACL_SECURITY_INFORMATION, badAcl.data()), STATUS_INVALID_ACL);
    auto badHeader = good;
    badHeader[0] = 2;
    EXPECT_EQ(ZwSetSecurityObject(writer, DACL_SECURITY_INFORMATION, badHeader.data()), STATUS_INVALID_SECURITY_DESCR);
    kernel.faults.failNamed("ZwSetSecurityObject", 1, STATUS_ACCESS_DENIED, false);
    kernel.faults.arm(true);
    EXPECT_EQ(ZwSetSecurityObject(writer, DACL_SECURITY_INFORMATION, good.data()), STATUS_ACCESS_DENIED);
    ZwClose(writer);
    EXPECT_EQ(text(device), systemOnly);
}

TEST_F(SecurityTest, toAbsoluteReportsAllFiveSizes) {
    auto relative = securityFromSddl("O:BAG:SYD:(A;;0x1;;;WD)");
    SECURITY_DESCRIPTOR absolute;
    ULONG sizes[5] = {sizeof absolute, 0, 0, 0, 0};
    const auto convert = [&](PULONG saclSize) {
        return RtlSelfRelativeToAbsoluteSD(relative.data(), &absolute, &sizes[0], nullptr, &sizes[1], nullptr, saclSize,
                                           nullptr, &sizes[3], nullptr, &sizes[4]);
    };
    EXPECT_EQ(convert(&sizes[2]), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(sizes[0], 0x28u);
    EXPECT_EQ(sizes[1], 28u);
    EXPECT_EQ(sizes[2], 0u);
    EXPECT_EQ(sizes[3], 16u);
    EXPECT_EQ(sizes[4], 12u);
    EXPECT_EQ(stoppedBy([&] { convert(nullptr); }), "argument");
    SECURITY_DESCRIPTOR notRelative{};
    notRelative.Revision = 1;
    EXPECT_EQ(RtlSelfRelativeToAbsoluteSD(&notRelative, &absolute, &sizes[0], nullptr, &sizes[1], nullptr, &sizes[2],
                                          nullptr, &sizes[3], nullptr, &sizes[4]),
              STATUS_BAD_DESCRIPTOR_FORMAT);
    ULONG bytes = 0;
    EXPECT_EQ(RtlAbsoluteToSelfRelativeSD(relative.data(), nullptr, &bytes), STATUS_BAD_DESCRIPTOR_FORMAT);
}

class AddAceTest : public SecurityTest {
  protected:
    AddAceTest() {
        acl->AclRevision = ACL_REVISION;
        acl->AclSize = sizeof memory;
    }
    NTSTATUS add(ULONG index, ACCESS_MASK mask, ULONG revision = ACL_REVISION) {
        DenyAce ace(mask);
        return RtlAddAce(acl, revision, index, ace.bytes, sizeof ace.bytes);
    }
    std::vector<ACCESS_MASK> masks() {
        std::vector<ACCESS_MASK> result;
        for (unsigned index = 0; index < acl->AceCount; ++index) {
            result.push_back(reinterpret_cast<ACCESS_DENIED_ACE *>(memory + 8 + index * 20)->Mask);
        }
        return result;
    }

    alignas(4) unsigned char memory[8 + 3 * 20] = {};
    PACL acl = reinterpret_cast<PACL>(memory);
};

TEST_F(AddAceTest, placesAtTheIndex) {
    EXPECT_EQ(add(0, 1), STATUS_SUCCESS);
    EXPECT_EQ(add(0, 2), STATUS_SUCCESS);
    EXPECT_EQ(add(MAXULONG, 3), STATUS_SUCCESS);
    EXPECT_EQ(masks(), (std::vector<ACCESS_MASK>{2, 1, 3}));
    EXPECT_EQ(add(0, 4), STATUS_BUFFER_TOO_SMALL);
}

TEST_F(AddAceTest, refusesWhatIsNoAcl) {
    acl->AclRevision = 1;
    EXPECT_EQ(add(0, 1), STATUS_INVALID_PARAMETER);
    acl->AclRevision = ACL_REVISION;
    acl->AclSize = 6;
    EXPECT_EQ(add(0, 1), STATUS_INVALID_PARAMETER);
    acl->AclSize = 9;
    EXPECT_EQ(add(0, 1), STATUS_INVALID_PARAMETER);
    acl->AclSize = sizeof memory;
    acl->AceCount = 1; // an entry of size 0
    EXPECT_EQ(add(0, 1), STATUS_INVALID_PARAMETER);
}

TEST_F(AddAceTest, refusesRaggedOrNewerEntries) {
    DenyAce ace(1);
    EXPECT_EQ(RtlAddAce(acl, ACL_REVISION, 0, ace.bytes, 18), STATUS_INVALID_PARAMETER);
    ace.bytes[0] = 5; // an object entry
    EXPECT_EQ(RtlAddAce(acl, ACL_REVISION, 0, ace.bytes, 20), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(RtlAddAce(acl, 4, 0, ace.bytes, 20), STATUS_SUCCESS);
    EXPECT_EQ(acl->AclRevision, 4);
}

TEST_F(SecurityTest, slackOfAnAclIsKept) {
    auto relative = securityFromSddl("D:(A;;0x1;;;WD)");
    relative.insert(relative.end(), 20, 0);
    relative[20 + 2] = 48; // AclSize with 20 bytes to spare
    setDeviceSecurity(device, relative);
    HANDLE handle = open(READ_CONTROL);
    ULONG needed = 0;
    ZwQuerySecurityObject(handle, DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
    EXPECT_EQ(needed, 20u + 48u);
    ZwClose(handle);
}

TEST_F(SecurityTest, accessGoesByOrder) {
    const std::vector<std::string> admin{"S-1-1-0", "S-1-5-32-544"};
    setDeviceSecurity(device, securityFromSddl("D:(D;;0x2;;;WD)(A;;0x1f01ff;;;BA)"));
    EXPECT_FALSE(accessGranted(device, GENERIC_WRITE, admin));
    EXPECT_FALSE(accessGranted(device, GENERIC_ALL, admin));
    EXPECT_TRUE(accessGranted(device, GENERIC_READ, admin));
    EXPECT_TRUE(accessGranted(device, FILE_APPEND_DATA, admin));
    EXPECT_FALSE(accessGranted(device, GENERIC_READ, {"S-1-1-0"}));
    setDeviceSecurity(device, securityFromSddl("D:(A;;0x1f01ff;;;BA)(D;;0x2;;;WD)"));
    EXPECT_TRUE(accessGranted(device, GENERIC_WRITE, admin));
    setDeviceSecurity(device, securityFromSddl("O:BAD:P"));
    EXPECT_FALSE(accessGranted(device, FILE_READ_DATA, admin));
    EXPECT_TRUE(accessGranted(device, READ_CONTROL | WRITE_DAC, admin));
    setDeviceSecurity(device, securityFromSddl("D:(A;;GA;;;WD)"));
    EXPECT_TRUE(accessGranted(device, GENERIC_ALL, {"S-1-1-0"}));
    EXPECT_EQ(stoppedBy([this] { accessGranted(device, MAXIMUM_ALLOWED, {}); }), "not simulated");
}

} // namespace

} // namespace sim::test
