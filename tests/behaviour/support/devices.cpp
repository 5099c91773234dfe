#include "devices.h"

#include "simulator/machine/setup_classes.h"

namespace behaviour {

namespace setup = sim::machine::setup;

sim::DeviceDescription flashDrive() {
    return sim::usbFlashDrive("stick", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"});
}

sim::DeviceDescription otherFlashDrive() {
    return sim::usbFlashDrive("other stick", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"4C530001230505117423"});
}

sim::DeviceDescription phone() {
    sim::DeviceDescription device =
        sim::usbMtpPhone("phone", {0x18D1, 0x4EE1, 0x0440, u"Google", u"Pixel 6", u"8A2X0RDFR"});
    device.security = usualSecurity;
    return device;
}

sim::DeviceDescription vendorBoard() {
    return sim::usbVendorDevice("board", {0x04B4, 0x8613, 0xA001, {}, u"EZ-USB FX2", {}});
}

sim::DeviceDescription keyboard() {
    return sim::usbKeyboard("keyboard", {0x046D, 0xC31C, 0x6402, u"Logitech", u"USB Keyboard", {}});
}

sim::DeviceDescription camera() {
    sim::DeviceDescription device =
        sim::usbDevice("camera", {0x04A9, 0x31BF, 0x0002, u"Canon Inc.", u"Digital Camera", u"1234"},
                       {0x06, 0x01, 0x01}, u"WUDFRd", std::u16string(setup::portable.guid));
    device.security = usualSecurity;
    return device;
}

sim::DeviceDescription mouse() {
    return sim::usbDevice("mouse", {0x046D, 0xC077, 0x7200, u"Logitech", u"USB Optical Mouse", {}}, {0x03, 0x01, 0x02},
                          u"HidUsb", std::u16string(setup::humanInterface.guid));
}

const std::vector<std::u16string> &idsOf(const sim::DeviceDescription &device) {
    return *device.hardwareIds;
}

} // namespace behaviour
