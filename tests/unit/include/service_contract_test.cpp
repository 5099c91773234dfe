#include "myrtelhaven_service.h"

#include <ntifs.h>

#include "tests/unit/fixture/text.h"

#include <cstddef>
#include <gtest/gtest.h>

namespace unit {
namespace {

TEST(ServiceContract, SymbolicLinkHasItsName) {
    EXPECT_EQ(sim::toUtf8(reinterpret_cast<const char16_t *>(MYRTELHAVEN_SYMBOLIC_LINK)),
              "\\DosDevices\\Tarvenholt Myrtelhaven");
}

TEST(ServiceContract, ControlCodesAreMadeAsTheSystemMakesThem) {
    EXPECT_EQ(IOCTL_WAIT_NOTIFICATION, CTL_CODE(FILE_DEVICE_UNKNOWN, 0x001, METHOD_BUFFERED, FILE_READ_ACCESS));
    EXPECT_EQ(IOCTL_WAIT_CALLBACK, CTL_CODE(FILE_DEVICE_UNKNOWN, 0x802, METHOD_BUFFERED, FILE_READ_ACCESS));
    EXPECT_EQ(IOCTL_PING, CTL_CODE(FILE_DEVICE_UNKNOWN, 0x000, METHOD_NEITHER, FILE_WRITE_ACCESS));
    EXPECT_EQ(IOCTL_CALLBACK_REPLY, CTL_CODE(FILE_DEVICE_UNKNOWN, 0x801, METHOD_BUFFERED, FILE_WRITE_ACCESS));
}

TEST(ServiceContract, ControlCodesHaveTheirValues) {
    EXPECT_EQ(IOCTL_WAIT_NOTIFICATION, 0x224004u);
    EXPECT_EQ(IOCTL_WAIT_CALLBACK, 0x226008u);
    EXPECT_EQ(IOCTL_GET_PROCESSED_DEVICES, 0x226014u);
    EXPECT_EQ(IOCTL_GET_NOT_USBHUB_DEVICES, 0x226018u);
    EXPECT_EQ(IOCTL_PING, 0x228003u);
    EXPECT_EQ(IOCTL_CALLBACK_REPLY, 0x22A004u);
    EXPECT_EQ(IOCTL_RESCAN_DEVICES, 0x22A00Fu);
    EXPECT_EQ(IOCTL_RELOAD_LOG_SETTINGS, 0x22A013u);
}

TEST(ServiceContract, MessageIsPacked) {
    EXPECT_EQ(sizeof(ServiceMessage), 1474u);
    EXPECT_EQ(alignof(ServiceMessage), 1u);
    const std::size_t offsets[] = {offsetof(ServiceMessage, requestId),
                                   offsetof(ServiceMessage, deviceType),
                                   offsetof(ServiceMessage, mode),
                                   offsetof(ServiceMessage, vendorId),
                                   offsetof(ServiceMessage, productId),
                                   offsetof(ServiceMessage, release),
                                   offsetof(ServiceMessage, serialNumber),
                                   offsetof(ServiceMessage, classCode),
                                   offsetof(ServiceMessage, subclassCode),
                                   offsetof(ServiceMessage, protocolCode),
                                   offsetof(ServiceMessage, deviceName),
                                   offsetof(ServiceMessage, manufacturer),
                                   offsetof(ServiceMessage, interfaceNumber),
                                   offsetof(ServiceMessage, interfaceCount),
                                   offsetof(ServiceMessage, filterable),
                                   offsetof(ServiceMessage, ruleType),
                                   offsetof(ServiceMessage, reserved),
                                   offsetof(ServiceMessage, description),
                                   offsetof(ServiceMessage, identity)};
    const std::size_t expected[] = {0,   8,   12,   16,   20,   24,   280,  536,  540, 544,
                                    548, 804, 1060, 1064, 1068, 1069, 1073, 1074, 1274};
    EXPECT_TRUE(std::equal(std::begin(offsets), std::end(offsets), std::begin(expected), std::end(expected)));
}

TEST(ServiceContract, AnswersArePacked) {
    EXPECT_EQ(sizeof(CallbackReply), 16u);
    EXPECT_EQ(offsetof(CallbackReply, answer), 8u);
    EXPECT_EQ(sizeof(NotificationInfo), 404u);
    EXPECT_EQ(offsetof(NotificationInfo, description), 4u);
    EXPECT_EQ(offsetof(NotificationInfo, identity), 204u);
}

TEST(ServiceContract, CallbackCarriesTheMessageUpToItsUncarriedPart) {
    EXPECT_EQ(MYRTELHAVEN_CALLBACK_BYTES, offsetof(ServiceMessage, reserved));
    EXPECT_EQ(MYRTELHAVEN_NO_INTERFACE, 0xFFFFFFFFu);
}

} // namespace
} // namespace unit
