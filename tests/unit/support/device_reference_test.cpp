#include "support/device_reference.h"

#include "simulator/kernel/io.h"
#include "tests/unit/fixture/kernel_test.h"

#include <utility>

namespace unit {
namespace {

class DeviceReferences : public KernelTest {
  protected:
    DeviceReferences()
        : driver(sim::createDriverObject(u"Devices")), device(sim::createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0)),
          other(sim::createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0)) {}
    ~DeviceReferences() override {
        EXPECT_EQ(references(device), 1);
        EXPECT_EQ(references(other), 1);
        sim::deleteDevice(device);
        sim::deleteDevice(other);
        sim::deleteDriverObject(driver);
    }
    long references(PDEVICE_OBJECT object) { return kernel.objects.references(object); }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT device;
    PDEVICE_OBJECT other;
};

TEST_F(DeviceReferences, SharingAddsAReferenceAndGivesItBack) {
    {
        const DeviceReference reference = DeviceReference::share(device);
        EXPECT_EQ(reference.get(), device);
        EXPECT_EQ(references(device), 2);
    }
    EXPECT_EQ(references(device), 1);
}

TEST_F(DeviceReferences, AdoptingTakesOverTheReferenceThatIsThere) {
    ObReferenceObject(device);
    const DeviceReference reference = DeviceReference::adopt(device);
    EXPECT_EQ(references(device), 2);
}

TEST_F(DeviceReferences, NothingIsSharedOfNoDevice) {
    EXPECT_FALSE(DeviceReference::share(nullptr));
    EXPECT_FALSE(DeviceReference());
}

TEST_F(DeviceReferences, MovingHandsTheReferenceOver) {
    DeviceReference first = DeviceReference::share(device);
    DeviceReference second(std::move(first));
    EXPECT_EQ(references(device), 2);
    DeviceReference third = DeviceReference::share(other);
    third = std::move(second);
    EXPECT_EQ(third.get(), device);
    EXPECT_EQ(references(device), 2);
    EXPECT_EQ(references(other), 1);
}

TEST_F(DeviceReferences, MovingToItselfChangesNothing) {
    DeviceReference reference = DeviceReference::share(device);
    DeviceReference &same = reference;
    reference = std::move(same);
    EXPECT_EQ(reference.get(), device);
    EXPECT_EQ(references(device), 2);
}

} // namespace
} // namespace unit
