#include "device/usb_class_codes.h"

#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

struct CodesCase {
    std::u16string compatibleIds;
    ULONG classCode;
    ULONG subclassCode;
    ULONG protocolCode;
};

void PrintTo(const CodesCase &codes, std::ostream *out) {
    *out << sim::toUtf8(codes.compatibleIds);
}

class ClassCodes : public KernelTest, public testing::WithParamInterface<CodesCase> {};

TEST_P(ClassCodes, AreReadFromTheFirstFullCompatibleId) {
    const UsbClassCodes codes = usbClassCodes(Text(GetParam().compatibleIds));
    EXPECT_EQ(codes.classCode, GetParam().classCode);
    EXPECT_EQ(codes.subclassCode, GetParam().subclassCode);
    EXPECT_EQ(codes.protocolCode, GetParam().protocolCode);
}

INSTANTIATE_TEST_SUITE_P(Interfaces, ClassCodes,
                         testing::Values(CodesCase{u"USB\\Class_08&SubClass_06&Prot_50", 8, 6, 0x50},
                                         CodesCase{u"USB\\CLASS_FF&SUBCLASS_FE&PROT_FD", 0xFF, 0xFE, 0xFD},
                                         CodesCase{u"usb\\class_0e&subclass_01&prot_00", 0x0E, 1, 0},
                                         CodesCase{multiSz({u"USB\\Class_03&SubClass_01&Prot_02",
                                                            u"USB\\Class_03&SubClass_01", u"USB\\Class_03"}),
                                                   3, 1, 2}));
INSTANTIATE_TEST_SUITE_P(Devices, ClassCodes,
                         testing::Values(CodesCase{u"USB\\DevClass_00&SubClass_00&Prot_00", 0, 0, 0},
                                         CodesCase{u"USB\\DevClass_e0&SubClass_01&Prot_03", 0xE0, 1, 3},
                                         CodesCase{u"USB\\DEVCLASS_09&SUBCLASS_0A&PROT_0B", 9, 10, 11}));
INSTANTIATE_TEST_SUITE_P(SeveralIds, ClassCodes,
                         testing::Values(CodesCase{multiSz({u"USB\\MS_COMP_MTP", u"USB\\Class_06&SubClass_01&Prot_01"}),
                                                   6, 1, 1},
                                         CodesCase{multiSz({u"USB\\Class_08", u"USB\\DevClass_01&SubClass_02&Prot_03",
                                                            u"USB\\Class_04&SubClass_05&Prot_06"}),
                                                   1, 2, 3}));
INSTANTIATE_TEST_SUITE_P(NoSuchId, ClassCodes,
                         testing::Values(CodesCase{u"", 0, 0, 0}, CodesCase{u"USB\\Class_08", 0, 0, 0},
                                         CodesCase{u"USB\\Class_08&SubClass_06", 0, 0, 0},
                                         CodesCase{u"USB\\Class_8&SubClass_06&Prot_50", 0, 0, 0},
                                         CodesCase{u"USB\\Class_08&SubClass_06&Prot_500", 0, 0, 0},
                                         CodesCase{u"HID\\Class_08&SubClass_06&Prot_50", 0, 0, 0},
                                         CodesCase{u"USB\\COMPOSITE", 0, 0, 0}));
INSTANTIATE_TEST_SUITE_P(DigitsThatAreNone, ClassCodes,
                         testing::Values(CodesCase{u"USB\\Class_zz&SubClass_06&Prot_50", 0, 6, 0x50},
                                         CodesCase{u"USB\\Class_08&SubClass_--&Prot_  ", 8, 0, 0}));

class ClassCodesWithoutMemory : public KernelTest {};

TEST_F(ClassCodesWithoutMemory, GoOnWithWhatCanStillBeMatched) {
    const Text ids(u"USB\\Class_08&SubClass_06&Prot_50");
    failEachCall([&] { return usbClassCodes(ids); },
                 [](const UsbClassCodes &codes, bool failed) { EXPECT_EQ(codes.classCode, failed ? 0u : 8u); });
}

} // namespace
} // namespace unit
