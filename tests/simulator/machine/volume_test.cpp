// What a person notices of a disk: the volume on it, writable or not, and saves that are lost.

#include "disk_fixture.h"

namespace sim::machinetest {
namespace {

using testing::IsEmpty;

struct Volumes : DiskTest {
    const std::vector<std::uint8_t> data = std::vector<std::uint8_t>(512, 0x5A);
};

TEST_F(Volumes, AreMountedWhenTheDiskArrives) {
    plugStick();
    const auto volume = machine.volume("stick disk");
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->mountAnswer(), STATUS_SUCCESS);
    EXPECT_FALSE(volume->readOnly());
    EXPECT_EQ(volume->save(512, data), STATUS_SUCCESS);
    EXPECT_TRUE(medium().unchanged());
    EXPECT_EQ(volume->unwritten(), 1U);
    std::vector<std::uint8_t> loaded;
    EXPECT_EQ(volume->load(512, 512, loaded), STATUS_SUCCESS);
    EXPECT_EQ(loaded, data);
    volume->writeBack();
    EXPECT_EQ(medium().contents(512, 512), data);
    EXPECT_THAT(volume->lostWrites(), IsEmpty());
    EXPECT_EQ(volume->unwritten(), 0U);
}

TEST_F(Volumes, OfALockedMediumRefuseSavesAtOnce) {
    DiskDescription says;
    says.medium.writeProtected = true;
    plugStick(says);
    const auto volume = machine.volume("stick disk");
    EXPECT_TRUE(volume->readOnly());
    EXPECT_EQ(volume->save(0, data), STATUS_MEDIA_WRITE_PROTECTED);
    std::vector<std::uint8_t> loaded;
    EXPECT_EQ(volume->load(0, 512, loaded), STATUS_SUCCESS);
    EXPECT_EQ(loaded, medium().contents(0, 512));
}

TEST_F(Volumes, LockedAfterTheMountLoseWhatIsSaved) {
    plugStick();
    medium().setWriteProtected(true);
    const auto volume = machine.volume("stick disk");
    EXPECT_EQ(volume->save(1024, data), STATUS_SUCCESS);
    volume->writeBack();
    ASSERT_EQ(volume->lostWrites().size(), 1U);
    EXPECT_EQ(volume->lostWrites()[0].offset, 1024U);
    EXPECT_EQ(volume->lostWrites()[0].length, 512U);
    EXPECT_EQ(volume->lostWrites()[0].status, STATUS_MEDIA_WRITE_PROTECTED);
    EXPECT_TRUE(medium().unchanged());
    EXPECT_TRUE(machine.mount(*machine.find("stick disk"))->readOnly()); // the next mount asks again
}

TEST_F(Volumes, AreWritableWhateverElseTheDiskAnswers) {
    DiskDescription says;
    says.controlAnswers[IOCTL_DISK_IS_WRITABLE] = {STATUS_INVALID_DEVICE_REQUEST, {}};
    plugStick(says);
    EXPECT_EQ(machine.volume("stick disk")->mountAnswer(), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_FALSE(machine.volume("stick disk")->readOnly());
}

TEST_F(Volumes, AreOnlyThereWhereSomethingMounts) {
    DiskDescription says;
    says.mounts = false;
    DeviceNode &disk = plugStick(says);
    EXPECT_EQ(machine.volume("stick disk"), nullptr);
    EXPECT_NE(machine.mount(disk), nullptr);
    EXPECT_NE(machine.volume("stick disk"), nullptr);
}

} // namespace
} // namespace sim::machinetest
