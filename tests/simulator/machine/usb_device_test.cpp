#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

namespace sim::machinetest {
namespace {

using Names = std::vector<std::u16string>;

TEST(UsbDevice, IdsHaveTheDocumentedForms) {
    const DeviceDescription device = usbDevice("reader", {0x0A5C, 0x5833, 0x0101}, {0x0B, 0, 0}, u"WUDFRd", u"{x}");
    EXPECT_EQ(device.hardwareIds, (Names{u"USB\\VID_0A5C&PID_5833&REV_0101", u"USB\\VID_0A5C&PID_5833"}));
    EXPECT_EQ(device.compatibleIds,
              (Names{u"USB\\Class_0b&SubClass_00&Prot_00", u"USB\\Class_0b&SubClass_00", u"USB\\Class_0b"}));
}

TEST(UsbDevice, TheSerialIsTheInstanceUnlessItCannotBe) {
    EXPECT_EQ(usbVendorDevice("a", {1, 2, 3, u"", u"", u"SER&1"}).instanceId, u"USB\\VID_0001&PID_0002\\SER&1");
    EXPECT_TRUE(
        usbVendorDevice("a", {1, 2, 3, u"", u"", u"a,b"}).instanceId.starts_with(u"USB\\VID_0001&PID_0002\\5&"));
    EXPECT_TRUE(usbVendorDevice("a", {1, 2, 3}).instanceId.starts_with(u"USB\\VID_0001&PID_0002\\5&"));
    EXPECT_NE(usbVendorDevice("a", {1, 2, 3}).instanceId, usbVendorDevice("b", {1, 2, 3}).instanceId);
}

TEST(UsbDevice, StringsHaveIndexesOnlyWhenPresent) {
    const DeviceDescription device = usbVendorDevice("a", {1, 2, 3, u"", u"Product", u"Serial"});
    EXPECT_EQ(device.usb->manufacturerIndex, 0);
    EXPECT_EQ(device.usb->productIndex, 1);
    EXPECT_EQ(device.usb->serialIndex, 2);
    EXPECT_EQ(device.usb->strings.at(2), u"Serial");
    EXPECT_EQ(device.busReportedDescription, u"Product");
}

TEST(UsbDevice, FunctionsAreNumbered) {
    const DeviceDescription keyboard = usbKeyboard("keyboard", {0xC0F4, 0x04E0, 0x0110});
    EXPECT_EQ(keyboard.compatibleIds->back(), u"USB\\COMPOSITE");
    EXPECT_EQ(keyboard.usb->interfaceCount, 2);
    ASSERT_EQ(keyboard.children.size(), 2U);
    EXPECT_EQ(keyboard.children[1].hardwareIds,
              (Names{u"USB\\VID_C0F4&PID_04E0&REV_0110&MI_01", u"USB\\VID_C0F4&PID_04E0&MI_01"}));
    EXPECT_TRUE(keyboard.children[1].instanceId.starts_with(u"USB\\VID_C0F4&PID_04E0&MI_01\\6&"));
    EXPECT_TRUE(keyboard.children[1].instanceId.ends_with(u"&0&0001"));
}

TEST(UsbDevice, AnMtpPhoneSaysSoFirst) {
    EXPECT_EQ(usbMtpPhone("phone", {0x04E8, 0x6860}).compatibleIds->front(), u"USB\\MS_COMP_MTP");
}

TEST(UsbDevice, AUaspDiskHasItsOwnInstanceForm) {
    const DeviceDescription disk = usbUaspDisk("ssd", {0x0781, 0x558C, 0x0100, u"", u"", u"3230"});
    EXPECT_EQ(disk.instanceId, u"USB\\VID_0781&PID_558C\\MSFT303230");
    EXPECT_EQ(disk.children.front().service, u"disk");
}

} // namespace
} // namespace sim::machinetest
