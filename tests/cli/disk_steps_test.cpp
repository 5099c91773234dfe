// Steps and expectations about disks: what is compared, and what is said of it when it is not met.

#include "played.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace cli;
using namespace cli::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A machine with a SATA disk "bay/disk", whose driver is not loaded, and these steps after the disk was plugged in.
std::vector<std::string> problemsOfSteps(const std::string &steps, const std::string &disk = "{}") {
    return failureTexts(played(R"(devices:
  bay:
    parent: pci
    instance: PCI\VEN_8086&DEV_A352\3&1&0&B8
    class: HDC
    service: storahci
    removable: false
    children:
      disk: {instance: SCSI\DISK&VEN_WDC\4&1&0&0, class: DiskDrive, service: disk, disk: )" +
                               disk + "}\nsteps:\n  - plug: bay\n" + steps));
}

} // namespace

TEST(DiskSteps, meetWhatIsTrue) {
    EXPECT_THAT(problemsOfSteps(R"(
  - read: {disk: bay/disk, at: 512, length: 512}
    expect: {status: STATUS_SUCCESS, disks: {bay/disk: {unchanged: true, volume: writable, lost-writes: 0}}}
  - write: {disk: bay/disk, at: 512, fill: 0xAB}
    expect: {status: STATUS_SUCCESS, bytes: ''}
  - disk-control: {disk: bay/disk, code: length, output: 8}
    expect: {bytes: 00 00 01 00 00 00 00 00}
  - save: {disk: bay/disk, bytes: '01'}
    expect: {status: STATUS_SUCCESS, bytes: ~}
  - expect: {disks: {bay/disk: {unchanged: false, bytes: {512: AB AB}, entered: {reads: 0, writes: 0, controls: 0}}}}
)"),
                IsEmpty());
}

TEST(DiskSteps, tellWhatIsNotMet) {
    EXPECT_THAT(problemsOfSteps(R"(
  - disk-control: {disk: bay/disk, code: is-writable}
    expect:
      status: STATUS_SUCCESS
      disks: {bay/disk: {unchanged: true, bytes: {0: '01'}, volume: writable, lost-writes: 2, entered: {reads: 1},
                         passed-down: {controls: 3}}}
)",
                                "{medium: {write-protected: true}}"),
                ElementsAre("status: STATUS_SUCCESS (0x00000000) | STATUS_MEDIA_WRITE_PROTECTED (0xC00000A2)",
                            "bay/disk: volume: writable | read-only", "bay/disk: lost-writes: 2 | 0",
                            "bay/disk: entered reads: 1 | 0", "bay/disk: passed-down controls: 3 | 0"));
    EXPECT_THAT(problemsOfSteps(R"(
  - write: {disk: bay/disk, fill: 1}
    expect: {disks: {bay/disk: {unchanged: true, bytes: {511: 01 02}}}}
)"),
                ElementsAre("bay/disk: medium: unchanged | changed", "bay/disk: bytes at 511: 0102 | 0120"));
}

TEST(DiskSteps, waitForWhatIsUnderWay) {
    EXPECT_THAT(problemsOfSteps(R"(
  - medium: {disk: bay/disk, stalled: true}
  - write: {disk: bay/disk, fill: 1, wait: false}
    expect: {status: ~, disks: {bay/disk: {unchanged: true}}}
  - read: {disk: bay/disk, wait: false}
  - medium: {disk: bay/disk, stalled: false}
  - await: bay/disk
    expect: {status: STATUS_SUCCESS, disks: {bay/disk: {unchanged: false}}}
  - await: bay/disk
    expect: {status: STATUS_SUCCESS}
)"),
                IsEmpty());
}

TEST(DiskSteps, leaveNothingWaitingAtTheEnd) {
    EXPECT_THAT(problemsOfSteps(R"(
  - medium: {disk: bay/disk, stalled: true}
  - write: {disk: bay/disk, fill: 1, wait: false}
)"),
                IsEmpty());
}

TEST(DiskSteps, thatCannotBeDoneSayWhy) {
    EXPECT_THAT(problemsOfSteps("  - read: {disk: bay}\n  - await: bay/disk\n  - save: {disk: bay/disk, fill: 1}\n",
                                "{mounts: false}"),
                ElementsAre(testing::HasSubstr("'bay' is no disk"),
                            testing::HasSubstr("no request to 'bay/disk' is under way"),
                            testing::HasSubstr("nothing is mounted on 'bay/disk'")));
    EXPECT_THAT(
        problemsOfSteps("  - unplug: bay\n  - expect: {disks: {bay/disk: {unchanged: true, entered: {reads: 0}}}}\n"),
        ElementsAre("bay/disk: requests: a disk that is plugged in | it is not there"));
}

TEST(DiskSteps, reachDisksThatAnswerAsTheyAreTold) {
    EXPECT_THAT(
        problemsOfSteps(R"(
  - disk-control: {disk: bay/disk, code: trim}
    expect: {status: STATUS_NOT_SUPPORTED}
  - disk-control: {disk: bay/disk, code: 0x2D0C10, output: 4}
    expect: {status: STATUS_SUCCESS, bytes: 01 02}
  - disk-control: {disk: bay/disk, code: query-property, input: 00 00 00 00 00 00 00 00 00 00 00 00, output: 16}
    expect: {status: STATUS_BUFFER_OVERFLOW, bytes: 28 00 00 00 39 30 00 00 00 00 00 00 05 00 00 00}
)",
                        "{answers-later: true, vendor: WDC, control-answers: {trim: {status: STATUS_NOT_SUPPORTED}, "
                        "0x2D0C10: {bytes: 01 02}}, storage-query: {size: 12345, vendor-offset: 5, "
                        "short-buffer: overflow}}"),
        IsEmpty());
}
