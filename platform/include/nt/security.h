// Access masks, identifiers, access control lists, security descriptors.
#pragma once

#include <ntdef.h>

// Named constants where a macro of that name could hit other people's identifiers.
constexpr ACCESS_MASK DELETE = 0x00010000;
constexpr ACCESS_MASK SYNCHRONIZE = 0x00100000;
#define READ_CONTROL (0x00020000L)
#define WRITE_DAC (0x00040000L)
#define WRITE_OWNER (0x00080000L)
#define STANDARD_RIGHTS_REQUIRED (0x000F0000L)
#define STANDARD_RIGHTS_READ (READ_CONTROL)
#define STANDARD_RIGHTS_WRITE (READ_CONTROL)
#define STANDARD_RIGHTS_EXECUTE (READ_CONTROL)
#define STANDARD_RIGHTS_ALL (0x001F0000L)
#define ACCESS_SYSTEM_SECURITY (0x01000000L)
#define MAXIMUM_ALLOWED (0x02000000L)
#define GENERIC_READ (0x80000000L)
#define GENERIC_WRITE (0x40000000L)
#define GENERIC_EXECUTE (0x20000000L)
#define GENERIC_ALL (0x10000000L)

#define KEY_QUERY_VALUE (0x0001)
#define KEY_SET_VALUE (0x0002)
#define KEY_READ (0x20019)
#define KEY_WRITE (0x20006)
#define KEY_ALL_ACCESS (0xF003F)

#define OWNER_SECURITY_INFORMATION (0x00000001L)
#define GROUP_SECURITY_INFORMATION (0x00000002L)
#define DACL_SECURITY_INFORMATION (0x00000004L)
#define SACL_SECURITY_INFORMATION (0x00000008L)

#define SECURITY_MAX_SID_SIZE 68
#define SID_REVISION (1)
#define SID_MAX_SUB_AUTHORITIES (15)

typedef struct _SID_IDENTIFIER_AUTHORITY {
    UCHAR Value[6];
} SID_IDENTIFIER_AUTHORITY, *PSID_IDENTIFIER_AUTHORITY;

// As many sub-authorities follow as SubAuthorityCount says.
typedef struct _SID {
    UCHAR Revision;
    UCHAR SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    ULONG SubAuthority[1];
} SID, *PISID;

#define ACL_REVISION (2)

typedef struct _ACL {
    UCHAR AclRevision;
    UCHAR Sbz1;
    USHORT AclSize;
    USHORT AceCount;
    USHORT Sbz2;
} ACL, *PACL;

#define ACCESS_ALLOWED_ACE_TYPE (0x0)
#define ACCESS_DENIED_ACE_TYPE (0x1)

typedef struct _ACE_HEADER {
    UCHAR AceType;
    UCHAR AceFlags;
    USHORT AceSize;
} ACE_HEADER, *PACE_HEADER;

// The SID begins at SidStart.
typedef struct _ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    ULONG SidStart;
} ACCESS_ALLOWED_ACE, *PACCESS_ALLOWED_ACE;

typedef struct _ACCESS_DENIED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    ULONG SidStart;
} ACCESS_DENIED_ACE, *PACCESS_DENIED_ACE;

#define SECURITY_DESCRIPTOR_REVISION (1)
#define SE_DACL_PRESENT (0x0004)
#define SE_DACL_DEFAULTED (0x0008)
#define SE_SACL_PRESENT (0x0010)
#define SE_DACL_PROTECTED (0x1000)
#define SE_SELF_RELATIVE (0x8000)

typedef struct _SECURITY_DESCRIPTOR_RELATIVE {
    UCHAR Revision;
    UCHAR Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    ULONG Owner;
    ULONG Group;
    ULONG Sacl;
    ULONG Dacl;
} SECURITY_DESCRIPTOR_RELATIVE, *PISECURITY_DESCRIPTOR_RELATIVE;

typedef struct _SECURITY_DESCRIPTOR {
    UCHAR Revision;
    UCHAR Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
} SECURITY_DESCRIPTOR, *PISECURITY_DESCRIPTOR;

// Well-known privileges and identifiers of the running system; the ones not named here are kept as space.
typedef struct _SE_EXPORTS {
    LUID Privileges[23];
    PSID SeNullSid;
    PSID SeWorldSid;
    PSID SeLocalSid;
    PSID SeCreatorOwnerSid;
    PSID SeCreatorGroupSid;
    PSID SeNtAuthoritySid;
    PSID SeDialupSid;
    PSID SeNetworkSid;
    PSID SeBatchSid;
    PSID SeInteractiveSid;
    PSID SeLocalSystemSid;
    PSID SeAliasAdminsSid;
    PSID SeAliasUsersSid;
    PSID SeAliasGuestsSid;
    PSID SeAliasPowerUsersSid;
    PSID SeAliasAccountOpsSid;
    PSID SeAliasSystemOpsSid;
    PSID SeAliasPrintOpsSid;
    PSID SeAliasBackupOpsSid;
    PSID SeAuthenticatedUsersSid;
    ULONG64 Others[30];
} SE_EXPORTS, *PSE_EXPORTS;

EXTERN_C_START

extern NTKERNELAPI PSE_EXPORTS SeExports;

// learn.microsoft.com has one page per routine. IRQL <= APC_LEVEL; the Zw routines PASSIVE_LEVEL.
NTSYSAPI ULONG RtlLengthSid(PSID sid);
NTSYSAPI NTSTATUS RtlCopySid(ULONG destinationBytes, PSID destination, PSID source);
/// All five sizes are read and must be given; STATUS_BUFFER_TOO_SMALL sets them to what is needed.
NTSYSAPI NTSTATUS RtlSelfRelativeToAbsoluteSD(PSECURITY_DESCRIPTOR selfRelative, PSECURITY_DESCRIPTOR absolute,
                                              PULONG absoluteBytes, PACL dacl, PULONG daclBytes, PACL sacl,
                                              PULONG saclBytes, PSID owner, PULONG ownerBytes, PSID primaryGroup,
                                              PULONG primaryGroupBytes);
NTSYSAPI NTSTATUS RtlAbsoluteToSelfRelativeSD(PSECURITY_DESCRIPTOR absolute, PSECURITY_DESCRIPTOR selfRelative,
                                              PULONG bytes);
/// Index 0 inserts in front, MAXULONG at the end.
NTSYSAPI NTSTATUS RtlAddAce(PACL acl, ULONG revision, ULONG index, PVOID aceList, ULONG aceListBytes);
NTSYSAPI NTSTATUS RtlGetDaclSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, PBOOLEAN present, PACL *dacl,
                                               PBOOLEAN defaulted);
NTSYSAPI NTSTATUS RtlSetDaclSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, BOOLEAN present, PACL dacl,
                                               BOOLEAN defaulted);
NTSYSAPI NTSTATUS ZwQuerySecurityObject(HANDLE handle, SECURITY_INFORMATION information,
                                        PSECURITY_DESCRIPTOR descriptor, ULONG bytes, PULONG neededBytes);
NTSYSAPI NTSTATUS ZwSetSecurityObject(HANDLE handle, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor);

EXTERN_C_END
