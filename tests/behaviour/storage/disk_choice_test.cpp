// Which filter a disk gets, and what happens when it can't be told.

#include "storage_test.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class DiskChoice : public StorageTest {
  protected:
    DiskChoice() { startWith(); }
    /// The SATA disk, as one of that bus and with that kind of medium.
    Add addDiskOf(std::uint32_t busType, bool removable) {
        sim::DeviceDescription device = internalSata();
        sim::DiskDescription &disk = *part(device, "sata disk").disk;
        disk.busType = busType;
        disk.removableMedia = removable;
        sim::DeviceNode &node = plugBelowRoot(device);
        const Add add = addOf("sata disk");
        machine().unplug(node);
        return add;
    }
    const std::vector<std::u16string> ids = idsWithin(internalSata(), "sata disk");
};

TEST_F(DiskChoice, UsbComesFirstThenRemovableMediaThenNvme) {
    struct Case {
        unsigned busType;
        bool removable;
        const char *filter; ///< in the line after the disk's, or null
    };
    for (const Case &tried :
         {Case{7, false, "INFO DiskFilterDevice create, hardwareIds = "},
          Case{7, true, "INFO DiskFilterDevice create, hardwareIds = "},
          Case{12, true, "INFO Create SdDiskFilterDevice, hardwareIds = "},
          Case{13, true, "INFO Create SdDiskFilterDevice, hardwareIds = "},
          Case{11, true, "INFO Create SdDiskFilterDevice, hardwareIds = "},
          Case{17, true, "INFO Create SdDiskFilterDevice, hardwareIds = "},
          Case{17, false, "INFO Create ThunderboltFilterDevice, hardwareIds = "}, Case{11, false, nullptr},
          Case{12, false, nullptr}, Case{8, false, nullptr}, Case{0, false, nullptr}, Case{0x10007, false, nullptr}}) {
        SCOPED_TRACE(testing::Message() << tried.busType << ' ' << tried.removable);
        const Add add = addDiskOf(tried.busType, tried.removable);
        EXPECT_EQ(add.returned, STATUS_SUCCESS);
        const Lines begin = diskAsked(ids, tried.busType, tried.removable);
        ASSERT_GE(add.log.size(), 2U);
        EXPECT_EQ(Lines(add.log.begin(), add.log.begin() + 2), begin);
        if (tried.filter == nullptr) {
            EXPECT_EQ(add.log.size(), 2U);
            EXPECT_FALSE(add.attached);
        } else {
            ASSERT_GE(add.log.size(), 3U);
            EXPECT_EQ(add.log[2], tried.filter + lines::list(ids));
        }
    }
}

TEST_F(DiskChoice, AnInternalSataDiskGetsNothing) {
    plugBelowRoot(internalSata());
    EXPECT_EQ(addOf("sata disk").log, diskAsked(ids, 11, false));
    expectUnfiltered("sata disk");
}

TEST_F(DiskChoice, TheFilterSitsAboveTheClassDriver) {
    plugBelowRoot(sdCard());
    const std::vector<std::u16string> stack = deviceNode("card").stack();
    EXPECT_EQ(stack, (std::vector<std::u16string>{u"\\Driver\\sdstor", u"\\Driver\\disk", std::u16string(ourDriver)}));
}

TEST_F(DiskChoice, TheClassIsComparedIgnoringCase) {
    sim::DeviceDescription device = sdCard();
    part(device, "card").classGuid = u"{4D36E967-E325-11CE-BFC1-08002BE10318}";
    plugBelowRoot(device);
    EXPECT_TRUE(addOf("card").attached);
}

TEST_F(DiskChoice, ADescriptorThatFailsKeepsTheDiskFromStarting) {
    for (const bool later : {false, true}) {
        SCOPED_TRACE(later);
        sim::DeviceDescription device = internalNvme();
        part(device, "boot disk").disk->storageAnswer.failure = STATUS_INVALID_DEVICE_REQUEST;
        part(device, "boot disk").disk->answersLater = later;
        sim::DeviceNode &node = plugBelowRoot(device);
        expectCode31("boot disk", STATUS_INVALID_DEVICE_REQUEST);
        EXPECT_EQ(addOf("boot disk").log, lines::asked(idsWithin(device, "boot disk")));
        machine().unplug(node);
    }
}

TEST_F(DiskChoice, NoMemoryForTheDescriptorKeepsTheDiskFromStarting) {
    unload();
    setParameter(u"LogLevel", 2);
    start();
    // The ids, the enumerator, the class, the descriptor.
    sim::DeviceDescription device = internalSata();
    plugBelowRoot(device);
    const std::vector<std::pair<const char *, std::uint64_t>> failures = {{"ExAllocatePool2", 4},
                                                                          {"IoBuildDeviceIoControlRequest", 1}};
    for (const auto &[routine, nth] : failures) {
        SCOPED_TRACE(routine);
        machine().unplug(deviceNode("sata"));
        sim::DeviceDescription disk = internalSata();
        std::vector<sim::DeviceDescription> children = std::move(disk.children);
        disk.children.clear();
        sim::DeviceNode &controller = plugBelowRoot(disk);
        failInAdd(routine, nth);
        plug(children.front(), &controller);
        expectCode31("sata disk", STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_TRUE(addOf("sata disk").log.empty());
    }
}

TEST_F(DiskChoice, AnAnswerThatComesLaterIsWaitedFor) {
    sim::DeviceDescription device = sdCard();
    part(device, "card").disk->answersLater = true;
    plugBelowRoot(device);
    EXPECT_TRUE(addOf("card").attached);
    EXPECT_TRUE(deviceNode("card").started());
}

TEST_F(DiskChoice, EveryDiskIsAskedAtBoot) {
    unload();
    machine().presetClassFilters(); // as a start of the machine finds them
    load();
    plugBelowRoot(internalNvme());
    plugBelowRoot(internalSata());
    machine().plugControlNode();
    EXPECT_TRUE(wasAdded("boot disk"));
    expectUnfiltered("boot disk");
    expectUnfiltered("sata disk");
}

TEST_F(DiskChoice, TheOffsetsAreToldAtDebugLevel) {
    unload();
    setParameter(u"LogLevel", 5);
    start();
    plugBelowRoot(internalSata());
    EXPECT_THAT(addOf("sata disk").log, Contains(HasSubstr("DEBUG ProductIdOffset=")));
}

} // namespace
} // namespace behaviour
