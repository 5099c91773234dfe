// Programs use a disk in eight threads while it is pulled out: every request comes back, and a read-only medium stays
// as it was.

#include "simulator/machine/storage_device.h"
#include "simulator/process/user_process.h"
#include "tests/races/support/race_test.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <thread>

namespace races {
namespace {

constexpr unsigned removals = 5;
constexpr unsigned refusalsSeen = 3; ///< before a program believes that the disk is gone
constexpr std::uint32_t askWritable = 0x70024;
constexpr std::uint32_t askGeometry = 0x70000;

enum Kind : unsigned { reading, writing, askingWritable, askingGeometry, kinds };

/// What requests come back with while the disk is there.
using Answers = std::array<NTSTATUS, kinds>;
constexpr Answers ofReadOnlyDisk{STATUS_SUCCESS, STATUS_ACCESS_DENIED, STATUS_MEDIA_WRITE_PROTECTED, STATUS_SUCCESS};
constexpr Answers ofWritableDisk{STATUS_SUCCESS, STATUS_SUCCESS, STATUS_SUCCESS, STATUS_SUCCESS};

/// Who answers differs: the filter's queue that is being purged, the class driver that has stopped, the port whose
/// device is gone.
bool saysGone(NTSTATUS status) {
    static const NTSTATUS statuses[] = {STATUS_DEVICE_DOES_NOT_EXIST, STATUS_DEVICE_NOT_READY, STATUS_NO_SUCH_DEVICE,
                                        STATUS_INVALID_DEVICE_STATE,  STATUS_DELETE_PENDING,   STATUS_CANCELLED};
    return std::find(std::begin(statuses), std::end(statuses), status) != std::end(statuses);
}

/// A process that has the disk open. One thread uses it.
class Program {
  public:
    Program(PDEVICE_OBJECT disk, unsigned thread) : process_(300 + thread), offset_(thread * 1024) {
        EXPECT_EQ(process_.open(disk, handle_), STATUS_SUCCESS);
    }
    sim::UserProcess::Io begin(Kind kind) {
        switch (kind) {
        case reading:
            return process_.begin(handle_, sim::process::TransferRequest{false, offset_, {}, 1024});
        case writing:
            return process_.begin(
                handle_, sim::process::TransferRequest{true, offset_, std::vector<std::uint8_t>(1024, 0x5A), 0});
        case askingWritable:
            return process_.begin(handle_, sim::process::ControlRequest{askWritable, {}, 0});
        default:
            return process_.begin(handle_, sim::process::ControlRequest{askGeometry, {}, 24});
        }
    }
    std::size_t offset() const { return offset_; }
    void end() { process_.die(); }

  private:
    sim::UserProcess process_;
    const std::size_t offset_;
    sim::UserProcess::Handle handle_ = 0;
};

class DiskRace : public RaceTest {
  protected:
    using Programs = std::vector<std::unique_ptr<Program>>;

    Programs programsAt(const std::string &disk) {
        Programs programs;
        for (unsigned thread = 0; thread < threadCount; ++thread) {
            programs.push_back(std::make_unique<Program>(machine().find(disk)->physicalDevice(), thread));
        }
        return programs;
    }
    /// One request after the other, of all kinds in turn, until the disk is gone. What the disk itself answers never
    /// succeeds again then; the filter's own queue refuses until its device is removed, which the open handle puts off.
    void useUntilGone(Program &program, const Answers &answers, const std::vector<std::uint8_t> &medium) {
        std::array<unsigned, kinds> refused{};
        for (unsigned turn = 0; refused[reading] < refusalsSeen || refused[askingGeometry] < refusalsSeen; ++turn) {
            const Kind kind = static_cast<Kind>(turn % kinds);
            const auto io = program.begin(kind);
            io->await();
            ++requests;
            if (io->status() == answers[kind]) {
                EXPECT_EQ(refused[kind], 0U) << "kind " << kind << " is answered by a disk that is gone";
                if (kind == reading && answers[writing] != STATUS_SUCCESS) {
                    EXPECT_TRUE(std::equal(io->output().begin(), io->output().end(),
                                           medium.begin() + static_cast<std::ptrdiff_t>(program.offset())));
                }
                continue;
            }
            ++refused[kind];
            EXPECT_TRUE(saysGone(io->status())) << "kind " << kind << ": 0x" << std::hex << io->status();
        }
    }
    /// Plugs `device`, uses its disk from all sides and takes `pulled` away, again and again.
    void pullOut(const sim::DeviceDescription &device, sim::DeviceNode *below, const std::string &disk,
                 const Answers &answers) {
        for (unsigned round = 0; round < removals; ++round) {
            SCOPED_TRACE(round);
            sim::DeviceNode &node = machine().plug(device, below);
            machine().settle();
            const std::vector<std::uint8_t> before = machine().medium(disk).contents();
            const Programs programs = programsAt(disk);
            const unsigned long wanted = requests + 40UL * (round + 1);
            together(threadCount + 1, [&](unsigned thread) {
                if (thread < threadCount) {
                    useUntilGone(*programs[thread], answers, before);
                    return;
                }
                while (requests < wanted) {
                    std::this_thread::yield();
                }
                machine().unplug(node);
            });
            for (const auto &program : programs) {
                program->end();
            }
            machine().settle();
            EXPECT_EQ(machine().find(disk), nullptr);
            if (answers[writing] != STATUS_SUCCESS) {
                EXPECT_EQ(machine().medium(disk).contents(), before);
                EXPECT_EQ(machine().medium(disk).writes(), 0U);
            }
        }
    }

    std::atomic<unsigned long> requests = 0;
};

sim::DeviceDescription laterAnswering(sim::DeviceDescription device) {
    device.children.at(0).disk->answersLater = true;
    return device;
}

TEST_F(DiskRace, AReadOnlyFlashDriveIsPulledOut) {
    apply(behaviour::readOnly({u"*"}));
    start();
    pullOut(drive("stick", "S1"), nullptr, "stick disk", ofReadOnlyDisk);
}

TEST_F(DiskRace, AReadOnlyFlashDriveThatAnswersLaterIsPulledOut) {
    apply(behaviour::readOnly({u"*"}));
    start();
    pullOut(laterAnswering(drive("stick", "S1")), nullptr, "stick disk", ofReadOnlyDisk);
}

TEST_F(DiskRace, AWritableFlashDriveIsPulledOut) {
    apply(behaviour::allowing({u"*"}));
    start();
    pullOut(drive("stick", "S1"), nullptr, "stick disk", ofWritableDisk);
}

TEST_F(DiskRace, AReadOnlyCardIsTakenOutWithItsReader) {
    setParameter(u"SdCardMode", 3);
    start();
    pullOut(sim::memoryCardReader("reader", sim::CardKind::sd, {"Generic", "SU32G", "8.0", "1234ABCD", true}),
            &machine().pciRoot(), "reader disk", ofReadOnlyDisk);
}

TEST_F(DiskRace, AReadOnlyThunderboltDiskIsPulledOut) {
    behaviour::Policy policy;
    policy.allowed = behaviour::asText(u"");
    policy.readOnly = behaviour::asText(u"GenDisk");
    apply(policy);
    start();
    pullOut(sim::nvmeBehindSwitch("enclosure", {"", "SSD 980 PRO", "3B2Q", "S5GXNX0T654321"}, true),
            &machine().pciRoot(), "enclosure disk", ofReadOnlyDisk);
}

TEST_F(DiskRace, RequestsThatHangInTheDiskComeBackWhenItIsPulledOut) {
    apply(behaviour::readOnly({u"*"}));
    start();
    for (unsigned round = 0; round < removals; ++round) {
        sim::DeviceNode &stick = machine().plug(drive("stick", "S1"));
        machine().settle();
        sim::Medium &medium = machine().medium("stick disk");
        const std::vector<std::uint8_t> before = medium.contents();
        const Programs programs = programsAt("stick disk");
        medium.stall();
        std::atomic<unsigned> begun = 0;
        together(threadCount + 1, [&](unsigned thread) {
            if (thread == threadCount) {
                while (begun < threadCount) {
                    std::this_thread::yield();
                }
                machine().unplug(stick);
                return;
            }
            std::vector<sim::UserProcess::Io> hanging;
            for (unsigned turn = 0; turn < 6; ++turn) {
                hanging.push_back(programs[thread]->begin(turn % 2 == 0 ? reading : writing));
                begun += turn == 2 ? 1 : 0; // the disk goes while the others are on their way
            }
            for (const sim::UserProcess::Io &io : hanging) {
                io->await();
                EXPECT_TRUE(saysGone(io->status()) || io->status() == STATUS_ACCESS_DENIED) << io->status();
            }
        });
        for (const auto &program : programs) {
            program->end();
        }
        medium.resume();
        machine().settle();
        EXPECT_EQ(medium.contents(), before);
        EXPECT_EQ(medium.reads(), 0U);
    }
}

TEST_F(DiskRace, ThePulledDiskGoesOnceWhenItsLastHandlesCloseFromAllSides) {
    apply(behaviour::readOnly({u"*"}));
    start();
    for (unsigned round = 0; round < 6 * removals; ++round) {
        sim::DeviceNode &stick = machine().plug(drive("stick", "S1"));
        machine().settle();
        const sim::DeviceNode &disk = *machine().find("stick disk");
        const Programs programs = programsAt("stick disk");
        machine().unplug(stick);
        EXPECT_NE(disk.physicalDevice(), nullptr) << "open handles put the removal off";
        together([&](unsigned thread) { programs[thread]->end(); });
        EXPECT_EQ(disk.physicalDevice(), nullptr);
    }
}

} // namespace
} // namespace races
