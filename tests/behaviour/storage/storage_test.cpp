#include "storage_test.h"

#include "simulator/framework/framework.h"

#include <cstring>

namespace behaviour {

void StorageTest::startWith(const Policy &policy) {
    apply(policy);
    start();
}

StorageTest::Handle StorageTest::openDisk(std::string_view disk) {
    Handle handle = 0;
    EXPECT_EQ(user.open(deviceNode(disk).physicalDevice(), handle), STATUS_SUCCESS) << disk;
    return handle;
}

NTSTATUS StorageTest::read(Handle handle, std::uint64_t offset, std::size_t bytes) {
    return user.read(handle, offset, bytes)->status();
}

NTSTATUS StorageTest::write(Handle handle, std::uint64_t offset, std::size_t bytes) {
    const auto io = user.write(handle, offset, std::vector<std::uint8_t>(bytes, 0x5A));
    EXPECT_EQ(io->information(), NT_SUCCESS(io->status()) ? bytes : 0U);
    return io->status();
}

NTSTATUS StorageTest::control(Handle handle, std::uint32_t code, std::size_t outputBytes,
                              std::vector<std::uint8_t> input) {
    return user.control(handle, {code, std::move(input), outputBytes})->status();
}

void StorageTest::expectWritable(std::string_view disk) {
    SCOPED_TRACE(disk);
    EXPECT_TRUE(deviceNode(disk).started());
    const Handle handle = openDisk(disk);
    EXPECT_EQ(control(handle, isWritableCode), STATUS_SUCCESS);
    EXPECT_EQ(read(handle, 1024), STATUS_SUCCESS);
    EXPECT_EQ(write(handle, 1024), STATUS_SUCCESS);
    EXPECT_EQ(machine().medium(disk).contents(1024, 512), std::vector<std::uint8_t>(512, 0x5A));
    EXPECT_EQ(control(handle, geometryCode, 24), STATUS_SUCCESS);
    user.close(handle);
}

PDEVICE_OBJECT StorageTest::filterOn(std::string_view disk) {
    PDEVICE_OBJECT top = deviceNode(disk).physicalDevice();
    while (top->AttachedDevice != nullptr) {
        top = top->AttachedDevice;
    }
    return top;
}

void StorageTest::expectReadOnly(std::string_view disk) {
    SCOPED_TRACE(disk);
    EXPECT_TRUE(deviceNode(disk).started());
    sim::Medium &medium = machine().medium(disk);
    const std::vector<std::uint8_t> before = medium.contents();
    const Handle handle = openDisk(disk);
    EXPECT_EQ(control(handle, isWritableCode), STATUS_MEDIA_WRITE_PROTECTED);
    const std::uint64_t readsBefore = medium.reads();
    const unsigned refusedBefore = sim::framework::handlerCalls(filterOn(disk)).writes;
    const unsigned passedBefore = sim::framework::passedDown(filterOn(disk)).reads;
    const std::uint64_t writesBefore = medium.writes();
    std::uint64_t reads = 0;
    for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{4096}, medium.size() - 512}) {
        for (const std::size_t bytes : {std::size_t{512}, std::size_t{8192}}) {
            if (offset + bytes > medium.size()) {
                continue;
            }
            EXPECT_EQ(write(handle, offset, bytes), STATUS_ACCESS_DENIED);
            const auto io = user.read(handle, offset, bytes);
            ++reads;
            EXPECT_EQ(io->status(), STATUS_SUCCESS);
            EXPECT_EQ(io->received(),
                      std::vector<std::uint8_t>(before.begin() + static_cast<std::ptrdiff_t>(offset),
                                                before.begin() + static_cast<std::ptrdiff_t>(offset + bytes)));
        }
    }
    EXPECT_EQ(control(handle, geometryCode, 24), STATUS_SUCCESS);
    EXPECT_EQ(control(handle, lengthCode, 8), STATUS_SUCCESS);
    EXPECT_EQ(medium.reads() - readsBefore, reads);
    EXPECT_EQ(sim::framework::passedDown(filterOn(disk)).reads - passedBefore, reads);
    EXPECT_EQ(sim::framework::handlerCalls(filterOn(disk)).reads, 0U) << "a read entered the driver";
    EXPECT_EQ(sim::framework::handlerCalls(filterOn(disk)).writes - refusedBefore, reads);
    EXPECT_EQ(medium.writes(), writesBefore);
    EXPECT_EQ(medium.contents(), before);
    user.close(handle);
}

void StorageTest::expectCode31(std::string_view disk, NTSTATUS status) {
    SCOPED_TRACE(disk);
    const Add &add = addOf(disk);
    EXPECT_EQ(add.callbackStatus, status);
    EXPECT_EQ(add.returned, status);
    EXPECT_FALSE(add.attached);
    const sim::DeviceNode &node = deviceNode(disk);
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), status);
    EXPECT_FALSE(node.everStarted());
}

void StorageTest::expectUnfiltered(std::string_view disk) {
    EXPECT_EQ(addOf(disk).returned, STATUS_SUCCESS);
    EXPECT_FALSE(addOf(disk).attached);
    EXPECT_THAT(deviceNode(disk).stack(), testing::Not(testing::Contains(std::u16string(ourDriver))));
    expectWritable(disk);
}

void StorageTest::expectDisabled(std::string_view disk) {
    const sim::DeviceNode &node = deviceNode(disk);
    EXPECT_TRUE(addOf(disk).attached);
    EXPECT_TRUE(node.everStarted());
    EXPECT_FALSE(node.started());
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_TRUE(node.hidden());
}

void StorageTest::TearDown() {
    user.die();
    DriverTest::TearDown();
}

} // namespace behaviour
