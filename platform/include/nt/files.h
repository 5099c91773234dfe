// Files and directories. All routines PASSIVE_LEVEL with special kernel APCs enabled; learn.microsoft.com has one page
// per routine.
#pragma once

#include <nt/irp.h>
#include <nt/security.h>

#define FILE_SUPERSEDE 0x00000000
#define FILE_OPEN 0x00000001
#define FILE_CREATE 0x00000002
#define FILE_OPEN_IF 0x00000003
#define FILE_OVERWRITE 0x00000004
#define FILE_OVERWRITE_IF 0x00000005

#define FILE_SUPERSEDED 0x00000000
#define FILE_OPENED 0x00000001
#define FILE_CREATED 0x00000002
#define FILE_OVERWRITTEN 0x00000003
#define FILE_EXISTS 0x00000004
#define FILE_DOES_NOT_EXIST 0x00000005

#define FILE_DIRECTORY_FILE 0x00000001
#define FILE_WRITE_THROUGH 0x00000002
#define FILE_SEQUENTIAL_ONLY 0x00000004
#define FILE_NO_INTERMEDIATE_BUFFERING 0x00000008
#define FILE_SYNCHRONOUS_IO_ALERT 0x00000010
#define FILE_SYNCHRONOUS_IO_NONALERT 0x00000020
#define FILE_NON_DIRECTORY_FILE 0x00000040
#define FILE_DELETE_ON_CLOSE 0x00001000
#define FILE_OPEN_BY_FILE_ID 0x00002000

#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004

#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_HIDDEN 0x00000002
#define FILE_ATTRIBUTE_SYSTEM 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_NORMAL 0x00000080

#define FILE_READ_DATA (0x0001)
#define FILE_LIST_DIRECTORY (0x0001)
#define FILE_WRITE_DATA (0x0002)
#define FILE_APPEND_DATA (0x0004)
#define FILE_READ_ATTRIBUTES (0x0080)
#define FILE_WRITE_ATTRIBUTES (0x0100)
#define FILE_GENERIC_READ (0x00120089L)
#define FILE_GENERIC_WRITE (0x00120116L)

// Low parts of a write's ByteOffset; the high part is then -1.
#define FILE_WRITE_TO_END_OF_FILE 0xffffffff
#define FILE_USE_FILE_POINTER_POSITION 0xfffffffe

typedef enum _FILE_INFORMATION_CLASS {
    FileDirectoryInformation = 1,
    FileFullDirectoryInformation = 2,
    FileBothDirectoryInformation = 3,
    FileBasicInformation = 4,
    FileStandardInformation = 5,
    FileRenameInformation = 10,
    FileNamesInformation = 12,
    FileDispositionInformation = 13,
    FilePositionInformation = 14,
    FileEndOfFileInformation = 20
} FILE_INFORMATION_CLASS,
    *PFILE_INFORMATION_CLASS;

typedef struct _FILE_NAMES_INFORMATION {
    ULONG NextEntryOffset;
    ULONG FileIndex;
    ULONG FileNameLength;
    WCHAR FileName[1];
} FILE_NAMES_INFORMATION, *PFILE_NAMES_INFORMATION;

typedef struct _FILE_DIRECTORY_INFORMATION {
    ULONG NextEntryOffset;
    ULONG FileIndex;
    LARGE_INTEGER CreationTime;
    LARGE_INTEGER LastAccessTime;
    LARGE_INTEGER LastWriteTime;
    LARGE_INTEGER ChangeTime;
    LARGE_INTEGER EndOfFile;
    LARGE_INTEGER AllocationSize;
    ULONG FileAttributes;
    ULONG FileNameLength;
    WCHAR FileName[1];
} FILE_DIRECTORY_INFORMATION, *PFILE_DIRECTORY_INFORMATION;

typedef struct _FILE_STANDARD_INFORMATION {
    LARGE_INTEGER AllocationSize;
    LARGE_INTEGER EndOfFile;
    ULONG NumberOfLinks;
    BOOLEAN DeletePending;
    BOOLEAN Directory;
} FILE_STANDARD_INFORMATION, *PFILE_STANDARD_INFORMATION;

typedef struct _FILE_DISPOSITION_INFORMATION {
    BOOLEAN DeleteFile;
} FILE_DISPOSITION_INFORMATION, *PFILE_DISPOSITION_INFORMATION;

typedef struct _FILE_POSITION_INFORMATION {
    LARGE_INTEGER CurrentByteOffset;
} FILE_POSITION_INFORMATION, *PFILE_POSITION_INFORMATION;

typedef struct _FILE_END_OF_FILE_INFORMATION {
    LARGE_INTEGER EndOfFile;
} FILE_END_OF_FILE_INFORMATION, *PFILE_END_OF_FILE_INFORMATION;

EXTERN_C_START

NTSYSAPI NTSTATUS ZwCreateFile(PHANDLE file, ACCESS_MASK desiredAccess, POBJECT_ATTRIBUTES attributes,
                               PIO_STATUS_BLOCK ioStatus, PLARGE_INTEGER allocationSize, ULONG fileAttributes,
                               ULONG shareAccess, ULONG disposition, ULONG options, PVOID extendedAttributes,
                               ULONG extendedAttributesBytes);
NTSYSAPI NTSTATUS ZwOpenFile(PHANDLE file, ACCESS_MASK desiredAccess, POBJECT_ATTRIBUTES attributes,
                             PIO_STATUS_BLOCK ioStatus, ULONG shareAccess, ULONG options);
NTSYSAPI NTSTATUS ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE apcRoutine, PVOID apcContext,
                              PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes, PLARGE_INTEGER offset, PULONG key);
NTSYSAPI NTSTATUS ZwQueryDirectoryFile(HANDLE directory, HANDLE event, PIO_APC_ROUTINE apcRoutine, PVOID apcContext,
                                       PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                       FILE_INFORMATION_CLASS informationClass, BOOLEAN single, PUNICODE_STRING pattern,
                                       BOOLEAN restart);
NTSYSAPI NTSTATUS ZwDeleteFile(POBJECT_ATTRIBUTES attributes);
NTSYSAPI NTSTATUS ZwQueryInformationFile(HANDLE file, PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                         FILE_INFORMATION_CLASS informationClass);
NTSYSAPI NTSTATUS ZwSetInformationFile(HANDLE file, PIO_STATUS_BLOCK ioStatus, PVOID buffer, ULONG bytes,
                                       FILE_INFORMATION_CLASS informationClass);

EXTERN_C_END
