#include "device/device_classes.h"

#include "tests/unit/fixture/property_source.h"

namespace unit {
namespace {

class CompositeDevice : public DeviceWithProperties {};

TEST_F(CompositeDevice, IsKnownByACompatibleId) {
    properties.compatibleIds = list({u"USB\\DevClass_00&SubClass_00&Prot_00", u"USB\\COMPOSITE"});
    EXPECT_TRUE(isCompositeDevice(device));
}

TEST_F(CompositeDevice, IsKnownByItsIdOnAnyBus) {
    properties.compatibleIds = list({u"COMPOSITE"});
    EXPECT_TRUE(isCompositeDevice(device));
}

TEST_F(CompositeDevice, CompatibleIdCountsInCapitalsOnlyAndAsAWhole) {
    for (const std::u16string_view id :
         {u"USB\\composite", u"USB\\Composite", u"USB\\COMPOSITE2", u"USB\\X\\COMPOSITE"}) {
        properties.compatibleIds = list({id});
        EXPECT_FALSE(isCompositeDevice(device)) << sim::toUtf8(id);
    }
}

TEST_F(CompositeDevice, IsKnownByItsServiceInAnyCase) {
    properties.compatibleIds = list({u"USB\\Class_08"});
    for (const std::u16string_view service : {u"usbccgp", u"USBCCGP", u"dg_ssudbus", u"DG_SsudBus"}) {
        properties.service = text(service);
        EXPECT_TRUE(isCompositeDevice(device)) << sim::toUtf8(service);
    }
}

TEST_F(CompositeDevice, IsKnownByItsServiceWithoutCompatibleIds) {
    properties.service = text(u"usbccgp");
    EXPECT_TRUE(isCompositeDevice(device));
}

TEST_F(CompositeDevice, IsNotWhatHasAnotherService) {
    for (const std::u16string_view service : {u"usbccgp2", u"usbhub", u"", u"xusbccgp"}) {
        properties.service = text(service);
        EXPECT_FALSE(isCompositeDevice(device)) << sim::toUtf8(service);
    }
}

TEST_F(CompositeDevice, IsNotWhatCannotBeRead) {
    EXPECT_FALSE(isCompositeDevice(device));
    properties.service = text(u"usbccgp");
    failEachCall([&] { return isCompositeDevice(device); },
                 [](bool composite, bool failed) { EXPECT_TRUE(composite || failed); });
    EXPECT_FALSE(whileFailing("IoGetDevicePropertyData", 1, [&] { return isCompositeDevice(device); }));
}

TEST_F(CompositeDevice, ServiceDecidesWhenTheCompatibleIdsCannotBeRead) {
    properties.compatibleIds = list({u"USB\\COMPOSITE"});
    properties.service = text(u"usbccgp");
    EXPECT_TRUE(whileFailing("IoGetDeviceProperty", 1, [&] { return isCompositeDevice(device); }));
    properties.service = text(u"other");
    EXPECT_FALSE(whileFailing("IoGetDeviceProperty", 1, [&] { return isCompositeDevice(device); }));
}

class MassStorageDevice : public DeviceWithProperties {};

TEST_F(MassStorageDevice, IsKnownByItsShortClassId) {
    properties.compatibleIds =
        list({u"USB\\Class_08&SubClass_06&Prot_50", u"USB\\Class_08&SubClass_06", u"USB\\Class_08"});
    EXPECT_TRUE(isMassStorageDevice(device));
}

TEST_F(MassStorageDevice, LongerClassIdsDoNotCount) {
    properties.compatibleIds = list({u"USB\\Class_08&SubClass_06&Prot_50", u"USB\\Class_08&SubClass_06"});
    EXPECT_FALSE(isMassStorageDevice(device));
}

TEST_F(MassStorageDevice, CaseCounts) {
    for (const std::u16string_view id : {u"USB\\CLASS_08", u"USB\\class_08"}) {
        properties.compatibleIds = list({id});
        EXPECT_FALSE(isMassStorageDevice(device)) << sim::toUtf8(id);
    }
}

TEST_F(MassStorageDevice, OtherClassesAreNone) {
    properties.compatibleIds = list({u"USB\\Class_03", u"USB\\Class_06"});
    EXPECT_FALSE(isMassStorageDevice(device));
}

TEST_F(MassStorageDevice, IsNotWhatCannotBeRead) {
    EXPECT_FALSE(isMassStorageDevice(device));
    properties.compatibleIds = list({u"USB\\Class_08"});
    failEachCall([&] { return isMassStorageDevice(device); },
                 [](bool massStorage, bool failed) { EXPECT_EQ(massStorage, !failed); });
}

} // namespace
} // namespace unit
