// What a program gets from a disk: sectors, and answers to control codes.

#include "disk_fixture.h"

namespace sim::machinetest {
namespace {

using namespace machine;

struct Disks : DiskTest {
    NTSTATUS trim(std::uint64_t offset, std::uint64_t length) {
        const ManageDataSet request{sizeof(ManageDataSet),     dataSetTrim,         0, 0, 0,
                                    sizeof(ManageDataSet) + 4, sizeof(DataSetRange)};
        std::vector<std::uint8_t> input = bytesOfStructure(request);
        input.resize(request.rangesOffset);
        const auto range = bytesOfStructure(DataSetRange{static_cast<LONGLONG>(offset), length});
        input.insert(input.end(), range.begin(), range.end());
        return control(storageManageDataSet, 0, input);
    }

    /// A read or write of one sector by a SCSI command. The SCSI status, or nothing when the request fails.
    std::optional<UCHAR> scsi(UCHAR command, UCHAR sector, const std::vector<std::uint8_t> &data) {
        ScsiPassThrough request{};
        request.length = sizeof(request);
        request.cdbLength = 10;
        request.transferLength = 512;
        request.dataOffset = sizeof(request);
        request.cdb[0] = command;
        request.cdb[5] = sector;
        request.cdb[8] = 1;
        std::vector<std::uint8_t> buffer = bytesOfStructure(request);
        buffer.insert(buffer.end(), data.begin(), data.end());
        if (!NT_SUCCESS(control(scsiPassThrough, sizeof(request) + 512, buffer))) {
            return std::nullopt;
        }
        return structureIn<ScsiPassThrough>(received).scsiStatus;
    }
    const std::vector<std::uint8_t> data = std::vector<std::uint8_t>(512, 0x5A);
};

TEST_F(Disks, HaveTheirFilterAboveTheClassDriver) {
    EXPECT_EQ(plugStick().stack(), (std::vector<std::u16string>{u"\\Driver\\USBSTOR", u"\\Driver\\disk", ours}));
}

TEST_F(Disks, ReadsAndWritesReachTheMedium) {
    openDisk(plugStick());
    const std::vector<std::uint8_t> before = medium().contents();
    const auto read = user.read(handle, 1024, 512);
    EXPECT_EQ(read->status(), STATUS_SUCCESS);
    EXPECT_EQ(read->received(), medium().contents(1024, 512));
    EXPECT_TRUE(medium().unchanged());
    const auto write = user.write(handle, 2048, data);
    EXPECT_EQ(write->status(), STATUS_SUCCESS);
    EXPECT_EQ(write->information(), 512U);
    std::vector<std::uint8_t> expected = before;
    std::copy(data.begin(), data.end(), expected.begin() + 2048);
    EXPECT_EQ(medium().contents(), expected);
    EXPECT_FALSE(medium().unchanged());
    EXPECT_EQ(medium().reads(), 1U);
    EXPECT_EQ(medium().writes(), 1U);
}

TEST_F(Disks, TransferWholeSectorsInsideTheMedium) {
    openDisk(plugStick());
    for (const auto &[offset, length] : std::vector<std::pair<std::uint64_t, std::size_t>>{
             {100, 512}, {0, 100}, {medium().size(), 512}, {medium().size() - 512, 1024}, {~0ULL << 9 >> 1, 512}}) {
        SCOPED_TRACE(testing::Message() << offset << ' ' << length);
        EXPECT_EQ(user.read(handle, offset, length)->status(), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(user.write(handle, offset, std::vector<std::uint8_t>(length))->status(), STATUS_INVALID_PARAMETER);
    }
    EXPECT_EQ(user.read(handle, medium().size() - 512, 512)->status(), STATUS_SUCCESS);
    EXPECT_EQ(user.write(handle, 512, {})->status(), STATUS_SUCCESS);
    EXPECT_TRUE(medium().unchanged());
}

TEST_F(Disks, TellTheirSizes) {
    DiskDescription says;
    says.medium = {4096 * 255 * 63, 4096};
    says.removableMedia = true;
    openDisk(plugStick(says));
    EXPECT_EQ(control(diskGetDriveGeometry, 24), STATUS_SUCCESS);
    const auto geometry = structureIn<DiskGeometry>(received);
    EXPECT_EQ(geometry.cylinders, 1);
    EXPECT_EQ(geometry.bytesPerSector, 4096U);
    EXPECT_EQ(geometry.mediaType, 11U);
    EXPECT_EQ(control(diskGetDriveGeometry, 23), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(control(diskGetLengthInfo, 8), STATUS_SUCCESS);
    EXPECT_EQ(structureIn<LONGLONG>(received), 4096 * 255 * 63);
}

TEST_F(Disks, AreNumbered) {
    plugStick();
    DeviceNode &sata = machine.plug(sataDisk("sata", {"WDC", "WD10EZEX"}), &machine.pciRoot());
    openDisk(*machine.find("sata disk"));
    EXPECT_TRUE(sata.started());
    EXPECT_EQ(control(storageGetDeviceNumber, 12), STATUS_SUCCESS);
    const auto number = structureIn<StorageDeviceNumber>(received);
    EXPECT_EQ(number.deviceType, static_cast<ULONG>(FILE_DEVICE_DISK));
    EXPECT_EQ(number.deviceNumber, 1U);
}

TEST_F(Disks, AreWrittenByControlRequestsToo) {
    openDisk(plugStick());
    EXPECT_EQ(scsi(scsiWrite10, 3, data), 0);
    EXPECT_EQ(medium().contents(3 * 512, 512), data);
    EXPECT_EQ(trim(1024, 512), STATUS_SUCCESS);
    EXPECT_EQ(medium().contents(1024, 512), std::vector<std::uint8_t>(512, 0));
    EXPECT_EQ(trim(medium().size(), 512), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(scsi(scsiRead10, 3, {}), 0);
    EXPECT_EQ(std::vector<std::uint8_t>(received.begin() + sizeof(ScsiPassThrough), received.end()), data);
}

TEST_F(Disks, WithALockedMediumAreNotWrittenInAnyWay) {
    openDisk(plugStick());
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_SUCCESS);
    medium().setWriteProtected(true);
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_MEDIA_WRITE_PROTECTED);
    EXPECT_EQ(user.write(handle, 0, data)->status(), STATUS_MEDIA_WRITE_PROTECTED);
    EXPECT_EQ(trim(0, 512), STATUS_MEDIA_WRITE_PROTECTED);
    EXPECT_EQ(scsi(scsiWrite10, 0, data), 2);
    EXPECT_EQ(user.read(handle, 0, 512)->status(), STATUS_SUCCESS);
    EXPECT_TRUE(medium().unchanged());
}

TEST_F(Disks, WithoutAMediumSaySo) {
    DiskDescription says;
    says.medium.present = false;
    DeviceNode &disk = plugStick(says);
    EXPECT_TRUE(disk.started());
    EXPECT_EQ(machine.volume("stick disk"), nullptr);
    openDisk(disk);
    EXPECT_EQ(user.read(handle, 0, 512)->status(), STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_NO_MEDIA_IN_DEVICE);
    EXPECT_EQ(control(storageCheckVerify2), STATUS_NO_MEDIA_IN_DEVICE);
    medium().setPresent(true);
    EXPECT_EQ(control(storageCheckVerify2), STATUS_SUCCESS);
}

TEST_F(Disks, AnswerOtherCodesAsTheyAreTold) {
    DiskDescription says;
    says.controlAnswers[IOCTL_DISK_IS_WRITABLE] = {STATUS_INVALID_DEVICE_REQUEST, {}};
    says.controlAnswers[0x2D0C10] = {STATUS_SUCCESS, {1, 2, 3, 4}};
    openDisk(plugStick(says));
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(control(0x2D0C10, 8), STATUS_SUCCESS);
    EXPECT_EQ(received, (std::vector<std::uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(control(0x2D0C10, 2), STATUS_SUCCESS);
    EXPECT_EQ(received, (std::vector<std::uint8_t>{1, 2}));
}

TEST_F(Disks, KeepTheirBytesWhenTheyComeBack) {
    DeviceNode &disk = plugStick();
    openDisk(disk);
    EXPECT_EQ(user.write(handle, 512, data)->status(), STATUS_SUCCESS);
    user.close(handle);
    machine.replug(*machine.find("stick"));
    openDisk(*machine.find("stick disk"));
    EXPECT_EQ(user.read(handle, 512, 512)->received(), data);
}

TEST_F(Disks, AnswerInAnotherThreadWhenTheyAreMadeSo) {
    DiskDescription says;
    says.answersLater = true;
    openDisk(plugStick(says));
    EXPECT_EQ(user.write(handle, 512, data)->status(), STATUS_SUCCESS);
    EXPECT_EQ(user.read(handle, 512, 512)->received(), data);
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_SUCCESS);
    EXPECT_EQ(control(IOCTL_STORAGE_QUERY_PROPERTY, 64, std::vector<std::uint8_t>(12)), STATUS_SUCCESS);
}

TEST_F(Disks, FinishWhatIsUnderWayWhenTheyArePulledOut) {
    DeviceNode &disk = plugStick();
    openDisk(disk);
    medium().stall();
    const auto write = user.begin(handle, process::TransferRequest{true, 0, data});
    const auto read = user.begin(handle, process::TransferRequest{false, 0, {}, 512});
    EXPECT_EQ(medium().stalledTransfers(), 2U);
    EXPECT_FALSE(write->isBack());
    machine.unplug(*machine.find("stick"));
    write->await();
    read->await();
    EXPECT_EQ(write->status(), STATUS_DEVICE_DOES_NOT_EXIST);
    EXPECT_EQ(read->status(), STATUS_DEVICE_DOES_NOT_EXIST);
    EXPECT_TRUE(medium().unchanged());
}

TEST_F(Disks, GoOnWithWhatWaitedForThem) {
    openDisk(plugStick());
    medium().stall();
    const auto write = user.begin(handle, process::TransferRequest{true, 0, data});
    EXPECT_EQ(control(IOCTL_DISK_IS_WRITABLE), STATUS_SUCCESS); // no transfer
    medium().resume();
    write->await();
    EXPECT_EQ(write->status(), STATUS_SUCCESS);
    EXPECT_EQ(medium().contents(0, 512), data);
}

} // namespace
} // namespace sim::machinetest
