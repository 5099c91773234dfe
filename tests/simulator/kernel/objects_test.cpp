#include "kernel_fixture.h"

namespace sim::test {

namespace {

class ObjectsTest : public KernelTest {
  protected:
    ObjectsTest() : driver(createDriverObject(u"USBHUB3")), device(createDevice(driver, 8, FILE_DEVICE_UNKNOWN, 0)) {}

    NTSTATUS byName(std::u16string_view name, ULONG attributes, POBJECT_TYPE type, PVOID *object) {
        Text text(name);
        return ObReferenceObjectByName(&text, attributes, nullptr, 0, type, KernelMode, nullptr, object);
    }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT device;
};

TEST_F(ObjectsTest, nameLookupReferences) {
    PVOID found = nullptr;
    EXPECT_EQ(byName(u"\\Driver\\usbhub3", OBJ_CASE_INSENSITIVE, *IoDriverObjectType, &found), STATUS_SUCCESS);
    EXPECT_EQ(found, driver);
    ASSERT_EQ(kernel.leaks().size(), 1u);
    EXPECT_NE(kernel.leaks()[0].find("\\Driver\\USBHUB3"), std::string::npos) << kernel.leaks()[0];
    ObDereferenceObject(found);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(ObjectsTest, nameLookupFailures) {
    PVOID found = this;
    EXPECT_EQ(byName(u"\\Driver\\usbhub3", 0, *IoDriverObjectType, &found), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(byName(u"\\Driver\\USBHUB", OBJ_CASE_INSENSITIVE, *IoDriverObjectType, &found),
              STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(byName(u"\\Nowhere\\USBHUB3", OBJ_CASE_INSENSITIVE, *IoDriverObjectType, &found),
              STATUS_OBJECT_PATH_NOT_FOUND);
    EXPECT_EQ(byName(u"Driver\\USBHUB3", 0, *IoDriverObjectType, &found), STATUS_OBJECT_PATH_SYNTAX_BAD);
    createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0, u"\\Device\\Thing");
    EXPECT_EQ(byName(u"\\Device\\Thing", 0, *IoDriverObjectType, &found), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(found, this);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(ObjectsTest, unloadedDriverLeavesTheNameSpaceFirst) {
    PVOID found = nullptr;
    byName(u"\\Driver\\USBHUB3", 0, nullptr, &found);
    deleteDevice(device);
    deleteDriverObject(driver);
    PVOID again = nullptr;
    EXPECT_EQ(byName(u"\\Driver\\USBHUB3", 0, nullptr, &again), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_TRUE(kernel.objects.contains(driver));
    ObDereferenceObject(found);
    EXPECT_FALSE(kernel.objects.contains(driver));
}

TEST_F(ObjectsTest, unbalancedDereferenceStops) {
    EXPECT_EQ(ObReferenceObject(device), 2);
    EXPECT_EQ(ObDereferenceObject(device), 1);
    EXPECT_EQ(stoppedBy([this] { ObDereferenceObject(device); }), "object");
    EXPECT_EQ(stoppedBy([this] { ObReferenceObject(this); }), "object");
}

TEST_F(ObjectsTest, handlesToDevices) {
    HANDLE handle = nullptr;
    ASSERT_EQ(ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, nullptr, READ_CONTROL | WRITE_DAC, nullptr, KernelMode,
                                    &handle),
              STATUS_SUCCESS);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(handle) >> 32, 0xFFFFFFFFu);
    ASSERT_EQ(kernel.leaks().size(), 1u);
    PVOID object = nullptr;
    OBJECT_HANDLE_INFORMATION information{};
    EXPECT_EQ(ObReferenceObjectByHandle(handle, 0, nullptr, KernelMode, &object, &information), STATUS_SUCCESS);
    EXPECT_EQ(object, device);
    EXPECT_EQ(information.GrantedAccess, static_cast<ACCESS_MASK>(READ_CONTROL | WRITE_DAC));
    ObDereferenceObject(object);
    EXPECT_EQ(ObReferenceObjectByHandle(handle, 0, *IoDriverObjectType, KernelMode, &object, nullptr),
              STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(ObReferenceObjectByHandle(handle, FILE_WRITE_DATA, nullptr, UserMode, &object, nullptr),
              STATUS_ACCESS_DENIED);
    EXPECT_EQ(ZwClose(handle), STATUS_SUCCESS);
    EXPECT_EQ(ObReferenceObjectByHandle(handle, 0, nullptr, KernelMode, &object, nullptr), STATUS_INVALID_HANDLE);
    EXPECT_EQ(stoppedBy([&] { ZwClose(handle); }), "handle");
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(ObjectsTest, handleKeepsTheObject) {
    HANDLE handle = nullptr;
    ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, nullptr, 0, nullptr, KernelMode, &handle);
    deleteDevice(device);
    EXPECT_TRUE(kernel.objects.contains(device));
    ZwClose(handle);
    EXPECT_FALSE(kernel.objects.contains(device));
}

TEST_F(ObjectsTest, handleInAUsersProcessMustBeAKernelHandle) {
    HANDLE handle = nullptr;
    currentThread().processId = 1234;
    EXPECT_EQ(stoppedBy([&] { ObOpenObjectByPointer(device, 0, nullptr, 0, nullptr, KernelMode, &handle); }), "handle");
    EXPECT_EQ(PsGetCurrentProcessId(), reinterpret_cast<HANDLE>(1234));
}

TEST_F(ObjectsTest, openingCanFail) {
    HANDLE handle = nullptr;
    kernel.faults.failNamed("ObOpenObjectByPointer", 1, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_EQ(ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, nullptr, 0, nullptr, KernelMode, &handle),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(handle, nullptr);
}

} // namespace

} // namespace sim::test
