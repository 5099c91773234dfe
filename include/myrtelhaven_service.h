#pragma once

/// The contract between the driver and the user-mode service: device name and packed messages.
/// Uses nothing but built-in types, so that kernel and user code include the same file. `wchar_t` has 16 bits.

/// Kernel name of the control device's symbolic link; user mode opens "\\.\Tarvenholt Myrtelhaven".
#define MYRTELHAVEN_SYMBOLIC_LINK L"\\DosDevices\\Tarvenholt Myrtelhaven"

/// Control code = device type << 16 | access << 14 | function << 2 | method.
#define MYRTELHAVEN_CTL_CODE(function, method, access) ((0x22u << 16) | ((access) << 14) | ((function) << 2) | (method))

#define IOCTL_WAIT_NOTIFICATION MYRTELHAVEN_CTL_CODE(0x001u, 0u, 1u)      ///< parked until a decision is told
#define IOCTL_WAIT_CALLBACK MYRTELHAVEN_CTL_CODE(0x802u, 0u, 1u)          ///< parked until a question is asked
#define IOCTL_GET_PROCESSED_DEVICES MYRTELHAVEN_CTL_CODE(0x805u, 0u, 1u)  ///< lists the USB devices present
#define IOCTL_GET_NOT_USBHUB_DEVICES MYRTELHAVEN_CTL_CODE(0x806u, 0u, 1u) ///< text of devices below no USB hub
#define IOCTL_PING MYRTELHAVEN_CTL_CODE(0x000u, 3u, 2u)                   ///< succeeds
#define IOCTL_CALLBACK_REPLY MYRTELHAVEN_CTL_CODE(0x801u, 0u, 2u)         ///< answers a question
#define IOCTL_RESCAN_DEVICES MYRTELHAVEN_CTL_CODE(0x803u, 3u, 2u)         ///< re-enumerates what the policy changes
#define IOCTL_RELOAD_LOG_SETTINGS MYRTELHAVEN_CTL_CODE(0x804u, 3u, 2u)    ///< reads the log level again

static_assert(IOCTL_WAIT_NOTIFICATION == 0x224004);
static_assert(IOCTL_WAIT_CALLBACK == 0x226008);
static_assert(IOCTL_GET_PROCESSED_DEVICES == 0x226014);
static_assert(IOCTL_GET_NOT_USBHUB_DEVICES == 0x226018);
static_assert(IOCTL_PING == 0x228003);
static_assert(IOCTL_CALLBACK_REPLY == 0x22A004);
static_assert(IOCTL_RESCAN_DEVICES == 0x22A00F);
static_assert(IOCTL_RELOAD_LOG_SETTINGS == 0x22A013);

#define MYRTELHAVEN_DEVICE_TYPE_USB 1u
#define MYRTELHAVEN_DEVICE_TYPE_DISK 2u
#define MYRTELHAVEN_NO_INTERFACE 0xFFFFFFFFu

#pragma pack(push, 1)

/// What a filter knows of a device, sent as a question (mode 0) or as a notification of a decision. Little-endian.
/// Texts end in a NUL; everything that is not known is zero.
struct ServiceMessage {
    unsigned long long requestId; ///< written by the driver into the copy that the service receives
    unsigned int deviceType;      ///< MYRTELHAVEN_DEVICE_TYPE_…
    unsigned int mode;            ///< 0 not yet decided, 1 blocked, 2 allowed, 3 read-only
    unsigned int vendorId;        ///< 0 for disks
    unsigned int productId;       ///< 0 for disks
    wchar_t release[128];         ///< bcdDevice in hexadecimal, or a disk's product revision
    wchar_t serialNumber[128];
    unsigned int classCode; ///< USB class, subclass and protocol; 0 for disks
    unsigned int subclassCode;
    unsigned int protocolCode;
    wchar_t deviceName[128];      ///< product string, or a disk's product id
    wchar_t manufacturer[128];    ///< manufacturer string, or a disk's vendor id
    unsigned int interfaceNumber; ///< MYRTELHAVEN_NO_INTERFACE when the device is no function of a composite one
    unsigned int interfaceCount;  ///< interfaces of the configuration, or 255
    unsigned char filterable;     ///< 1 when the rules apply to the device
    unsigned int ruleType;    ///< 1 not filterable, 2 allowed, 3 blocked, 4 read-only, 5 read-only unlisted, 0 other
    unsigned char reserved;   ///< not carried to the service
    wchar_t description[100]; ///< what the bus reported, or a disk's device description
    wchar_t identity[100];    ///< first hardware id, backslash, serial; or a disk's instance path
};

/// The answer to a question.
struct CallbackReply {
    unsigned long long requestId; ///< as received in the ServiceMessage
    unsigned int answer;          ///< the mode
    unsigned int reserved;        ///< zero
};

/// One device of IOCTL_GET_PROCESSED_DEVICES.
struct ProcessedDeviceInfo {
    unsigned int valid;     ///< 1; 0 when the device's instance id could not be read or understood
    unsigned int mode;      ///< not told here: 0
    unsigned int vendorId;  ///< from the instance id
    unsigned int productId; ///< from the instance id
    unsigned int ruleType;  ///< not told here: 0
    wchar_t serialNumber[128];
    wchar_t deviceName[128];
    wchar_t manufacturer[128];
};

/// What a parked IOCTL_WAIT_NOTIFICATION receives.
struct NotificationInfo {
    unsigned int mode;
    wchar_t description[100]; ///< ServiceMessage::description
    wchar_t identity[100];    ///< ServiceMessage::identity
};

#pragma pack(pop)

/// The least that the buffer of IOCTL_GET_NOT_USBHUB_DEVICES must hold.
#define MYRTELHAVEN_NOT_USBHUB_BYTES 20480u

/// Bytes of a ServiceMessage that a parked IOCTL_WAIT_CALLBACK receives, and the least its buffer must hold.
#define MYRTELHAVEN_CALLBACK_BYTES 1073u

static_assert(sizeof(wchar_t) == 2, "texts are UTF-16");
static_assert(sizeof(ServiceMessage) == 1474);
static_assert(__builtin_offsetof(ServiceMessage, deviceType) == 8);
static_assert(__builtin_offsetof(ServiceMessage, mode) == 12);
static_assert(__builtin_offsetof(ServiceMessage, vendorId) == 16);
static_assert(__builtin_offsetof(ServiceMessage, productId) == 20);
static_assert(__builtin_offsetof(ServiceMessage, release) == 24);
static_assert(__builtin_offsetof(ServiceMessage, serialNumber) == 280);
static_assert(__builtin_offsetof(ServiceMessage, classCode) == 536);
static_assert(__builtin_offsetof(ServiceMessage, subclassCode) == 540);
static_assert(__builtin_offsetof(ServiceMessage, protocolCode) == 544);
static_assert(__builtin_offsetof(ServiceMessage, deviceName) == 548);
static_assert(__builtin_offsetof(ServiceMessage, manufacturer) == 804);
static_assert(__builtin_offsetof(ServiceMessage, interfaceNumber) == 1060);
static_assert(__builtin_offsetof(ServiceMessage, interfaceCount) == 1064);
static_assert(__builtin_offsetof(ServiceMessage, filterable) == 1068);
static_assert(__builtin_offsetof(ServiceMessage, ruleType) == 1069);
static_assert(__builtin_offsetof(ServiceMessage, reserved) == 1073);
static_assert(__builtin_offsetof(ServiceMessage, description) == 1074);
static_assert(__builtin_offsetof(ServiceMessage, identity) == 1274);
static_assert(sizeof(CallbackReply) == 16);
static_assert(__builtin_offsetof(CallbackReply, answer) == 8);
static_assert(sizeof(ProcessedDeviceInfo) == 788);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, vendorId) == 8);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, productId) == 12);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, ruleType) == 16);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, serialNumber) == 20);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, deviceName) == 276);
static_assert(__builtin_offsetof(ProcessedDeviceInfo, manufacturer) == 532);
static_assert(sizeof(NotificationInfo) == 404);
static_assert(__builtin_offsetof(NotificationInfo, description) == 4);
static_assert(__builtin_offsetof(NotificationInfo, identity) == 204);
