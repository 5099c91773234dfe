// NVMe disks behind a Thunderbolt port are judged; internal ones are left alone.

#include "myrtelhaven_service.h"
#include "storage_test.h"
#include "tests/behaviour/support/service_message.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class Thunderbolt : public StorageTest {
  protected:
    const std::vector<std::u16string> ids = idsWithin(enclosure(), "enclosure disk");

    static Policy listed(const RuleList &allowed, const RuleList &readOnly) {
        Policy policy;
        policy.allowed = allowed;
        policy.readOnly = readOnly;
        return policy;
    }
    Lines createdDisk(const std::vector<std::u16string> &hardwareIds) {
        return lines::all(diskAsked(hardwareIds, 17, false),
                          Lines{"INFO Create ThunderboltFilterDevice, hardwareIds = " + lines::list(hardwareIds)});
    }
    static Lines described() {
        return {"INFO SerialNumber=S5GXNX0T654321, deviceName=SSD 980 PRO     , deviceDescription=Disk drive, "
                "deviceInstancePath=SCSI\\DISK&VEN_NVME&PROD_SSD_980_PRO\\8&9D0E1F2&0&000000, vendorId=0, productId=0, "
                "ProductRevision=3B2Q"};
    }
    /// The comparison of one rule with one id.
    static std::string compared(std::u16string_view rule, std::u16string_view id) {
        return "INFO Rule=" + lines::utf8(rule) + " fullId=" + lines::utf8(id);
    }
    std::string checked(const char *question, bool result) {
        return std::string("INFO Check request ") + question + ", hardwareIds = " + lines::list(ids) +
               ", result = " + (result ? "1" : "0");
    }
    std::string saying(const char *what) {
        return std::string("INFO ") + what + " device, hardwareIds = " + lines::list(ids);
    }
    static std::string told(int mode, int ruleType, bool registered = false) {
        return "INFO Send notification, device type = 2, device mode = " + std::to_string(mode) +
               ", rule type = " + std::to_string(ruleType) + ", m_apiRegistered = " + (registered ? "1" : "0") +
               ", device name = SSD 980 PRO     ";
    }
    /// The disk's add with a failing call, below an enclosure that is there already.
    sim::DeviceNode &plugDisk() {
        if (machine().find("enclosure") == nullptr) {
            sim::DeviceDescription without = enclosure();
            part(without, "enclosure").children.clear();
            plugBelowRoot(without);
        }
        sim::DeviceDescription whole = enclosure();
        return plug(part(whole, "enclosure disk"), machine().find("enclosure"));
    }
    /// The disk works without the filter although its add failed.
    void expectHidden(std::string_view disk, NTSTATUS status, const char *line) {
        EXPECT_EQ(addOf(disk).callbackStatus, status);
        EXPECT_EQ(addOf(disk).log.back(), line);
        expectUnfiltered(disk);
    }
};

const RuleList none = asText(u"");
const RuleList theDisk = asText(u"DiskNVMe____SSD_980_PRO_____3B2Q");

TEST_F(Thunderbolt, AnAllowedDiskIsWritable) {
    const Policy policy = listed(theDisk, none);
    startWith(policy);
    plugBelowRoot(enclosure());
    const std::u16string rule = u"DISKNVME____SSD_980_PRO_____3B2Q";
    EXPECT_EQ(addOf("enclosure disk").log, lines::all(createdDisk(ids), lines::reload(policy), described(),
                                                      Lines{compared(rule, enclosureDiskId), checked("isAllowed", true),
                                                            saying("Allowed"), told(2, 2)}));
    EXPECT_TRUE(addOf("enclosure disk").attached);
    expectWritable("enclosure disk");
}

TEST_F(Thunderbolt, AReadOnlyDiskIsReadOnly) {
    const Policy policy = listed(none, asText(u"GenDisk"));
    startWith(policy);
    plugBelowRoot(enclosure());
    const Lines &log = addOf("enclosure disk").log;
    EXPECT_THAT(log, Contains(checked("isAllowed", false)));
    EXPECT_EQ(Lines(log.end() - 4, log.end()),
              (Lines{checked("isReadOnly", true), "INFO Init queue", saying("Read-only"), told(3, 4)}));
    expectReadOnly("enclosure disk");
}

TEST_F(Thunderbolt, AnUnlistedDiskIsDisabled) {
    const Policy policy = listed(none, none);
    startWith(policy);
    plugBelowRoot(enclosure());
    EXPECT_EQ(addOf("enclosure disk").log, lines::all(createdDisk(ids), lines::reload(policy), described(),
                                                      Lines{checked("isAllowed", false), checked("isReadOnly", false),
                                                            saying("Blocked"), told(1, 3)}));
    EXPECT_EQ(addOf("enclosure disk").returned, STATUS_SUCCESS);
    expectDisabled("enclosure disk");
}

TEST_F(Thunderbolt, ADiskOnBothListsIsAllowed) {
    startWith(listed(theDisk, theDisk));
    plugBelowRoot(enclosure());
    expectWritable("enclosure disk");
}

TEST_F(Thunderbolt, RulesOfAListMatchNoDisk) {
    startWith(listed(asStrings({std::u16string(enclosureDiskId)}), asStrings({})));
    plugBelowRoot(enclosure());
    EXPECT_THAT(addOf("enclosure disk").log,
                Contains(compared(u"DISKNVME____SSD_980_PRO_____3B2Q\\*", enclosureDiskId)));
    expectDisabled("enclosure disk");
}

TEST_F(Thunderbolt, NeitherFilterabilityNorTheServiceCount) {
    setParameter(u"CallbackMode", 2);
    Policy policy = listed(none, theDisk);
    policy.blocked = asText(u"Class_08"); // of USB storage
    startWith(policy);
    plugBelowRoot(enclosure());
    expectReadOnly("enclosure disk");
}

TEST_F(Thunderbolt, WithoutTheControlDeviceTheDecisionIsTheSame) {
    apply(listed(none, theDisk));
    load();
    plugBelowRoot(enclosure());
    EXPECT_THAT(addOf("enclosure disk").log, Not(Contains(HasSubstr("Send notification"))));
    expectReadOnly("enclosure disk");
}

TEST_F(Thunderbolt, TheServiceIsToldOfTheDecision) {
    startWith(listed(none, none));
    sim::UserProcess service{100};
    Handle handle = 0;
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    const auto parked = service.begin(handle, {IOCTL_WAIT_NOTIFICATION, {}, sizeof(NotificationInfo)});
    plugBelowRoot(enclosure());
    parked->await();
    EXPECT_EQ(parked->status(), STATUS_SUCCESS);
    const MessageBytes bytes(parked->output());
    EXPECT_EQ(bytes.number(0), 1U);
    EXPECT_EQ(bytes.text(4, 200), u"Disk drive");
    EXPECT_EQ(bytes.text(204, 200), u"SCSI\\DISK&VEN_NVME&PROD_SSD_980_PRO\\8&9D0E1F2&0&000000");
    EXPECT_THAT(addOf("enclosure disk").log, Contains(told(1, 3, true)));
    service.die();
}

TEST_F(Thunderbolt, AFailureToTellTheServiceDoesNotFailTheAdd) {
    startWith(listed(none, theDisk));
    plugDisk();
    machine().unplug(deviceNode("enclosure disk"));
    sim::UserProcess service{100};
    Handle handle = 0;
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    failInAdd("WdfRequestCreate", 3); // two questions for capabilities, then the notification
    plugDisk();
    EXPECT_EQ(addOf("enclosure disk").callbackStatus, STATUS_SUCCESS);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to prepare notification, status = 0xc000009a");
    expectReadOnly("enclosure disk");
    service.die();
}

TEST_F(Thunderbolt, AnInternalDiskIsNotRemovableAndStartsWithoutTheFilter) {
    startWith(listed(none, none));
    plugBelowRoot(internalNvme());
    EXPECT_EQ(addOf("boot disk").log, lines::all(createdDisk(idsWithin(internalNvme(), "boot disk")),
                                                 Lines{"ERROR Incorrect device type, must be removable"}));
    expectHidden("boot disk", STATUS_BAD_DEVICE_TYPE, "ERROR Incorrect device type, must be removable");
}

TEST_F(Thunderbolt, AnInternalDiskInAHotPlugSlotStartsWithoutTheFilter) {
    startWith(listed(none, none));
    sim::DeviceDescription device = internalNvme();
    device.removable = true;
    plugBelowRoot(device);
    expectHidden("boot disk", STATUS_BAD_DEVICE_TYPE, "ERROR Incorrect device type, must be connected to PCIe prots");
}

TEST_F(Thunderbolt, ADiskBehindTheSwitchOfAChipsetIsNotRemovable) {
    startWith(listed(none, none));
    sim::DeviceDescription device = enclosure();
    part(device, "enclosure").removable = false;
    plugBelowRoot(device);
    expectHidden("enclosure disk", STATUS_BAD_DEVICE_TYPE, "ERROR Incorrect device type, must be removable");
}

TEST_F(Thunderbolt, ARemovableDiskBelowAFixedControllerIsJudged) {
    startWith(listed(none, theDisk));
    sim::DeviceDescription device = enclosure();
    part(device, "enclosure").removable = false;
    part(device, "enclosure disk").removable = true;
    plugBelowRoot(device);
    expectReadOnly("enclosure disk");
}

TEST_F(Thunderbolt, EachAncestorMustBeWhatItShouldBe) {
    startWith(listed(none, none));
    const auto change = [&](const char *name, auto apply) {
        SCOPED_TRACE(name);
        sim::DeviceDescription device = enclosure();
        apply(part(device, name));
        sim::DeviceNode &top = plugBelowRoot(device);
        EXPECT_EQ(addOf("enclosure disk").callbackStatus, STATUS_BAD_DEVICE_TYPE);
        EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Incorrect device type, must be connected to PCIe prots");
        expectUnfiltered("enclosure disk");
        machine().unplug(top);
    };
    for (const char *name : {"enclosure", "downstream port", "upstream port"}) {
        change(name, [](sim::DeviceDescription &device) { device.description = u"something else"; });
        change(name, [](sim::DeviceDescription &device) { device.matchingDeviceId = u"PCI\\CC_0604&DT_4"; });
        change(name, [](sim::DeviceDescription &device) {
            device.rawProperties["DeviceDesc"] = {STATUS_ACCESS_DENIED, {}, 0};
        });
        change(name, [](sim::DeviceDescription &device) {
            device.rawProperties["Service"] = {STATUS_OBJECT_NAME_NOT_FOUND, {}, 0};
        });
        change(name, [](sim::DeviceDescription &device) {
            device.rawProperties["MatchingDeviceId"] = {STATUS_OBJECT_NAME_NOT_FOUND, {}, 0};
        });
    }
}

TEST_F(Thunderbolt, WithoutAParentTheDiskStartsWithoutTheFilter) {
    startWith(listed(none, none));
    sim::DeviceDescription whole = enclosure();
    sim::DeviceDescription device = part(whole, "enclosure disk");
    device.hasParent = false;
    device.busDriver = u"stornvme";
    device.disk->busType = 17;
    plugBelowRoot(device);
    expectHidden("enclosure disk", STATUS_UNSUCCESSFUL,
                 "ERROR Failed to get device capabilities for parent pdo, status = 0xc0000001");
}

TEST_F(Thunderbolt, FailuresBeforeTheDiskIsKnownToBeExternalAreHidden) {
    startWith(listed(none, theDisk));
    struct Case {
        const char *routine;
        std::uint64_t nth;
        NTSTATUS status;
        const char *line;
    };
    for (const Case &failing :
         {Case{"WdfDeviceCreate", 1, STATUS_NO_SUCH_DEVICE, "ERROR Failed to create device, status = 0xc000000e"},
          Case{"WdfIoTargetCreate", 1, STATUS_INSUFFICIENT_RESOURCES,
               "ERROR Failed to get device capabilities, status = 0xc000009a"},
          Case{"WdfRequestCreate", 1, STATUS_INSUFFICIENT_RESOURCES,
               "ERROR Failed to get device capabilities, status = 0xc000009a"},
          Case{"WdfIoTargetCreate", 2, STATUS_INSUFFICIENT_RESOURCES,
               "ERROR Failed to get device capabilities for parent pdo, status = 0xc000009a"}}) {
        SCOPED_TRACE(failing.line);
        plugDisk();
        machine().unplug(deviceNode("enclosure disk"));
        failInAdd(failing.routine, failing.nth, failing.status);
        sim::DeviceNode &node = plugDisk();
        expectHidden("enclosure disk", failing.status, failing.line);
        machine().unplug(node);
    }
}

TEST_F(Thunderbolt, WithoutReadableRulesTheDiskDoesNotStart) {
    Policy policy = listed(theDisk, none);
    policy.blocked = {};
    startWith(policy);
    plugBelowRoot(enclosure());
    expectCode31("enclosure disk", STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to read blocked rules key, status = 0xc0000034");
}

TEST_F(Thunderbolt, WithoutTheOtherListsTheDiskDoesNotStartEither) {
    startWith(listed(theDisk, {}));
    plugBelowRoot(enclosure());
    expectCode31("enclosure disk", STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to read readonly rules key, status = 0xc0000034");
}

TEST_F(Thunderbolt, ADiskThatCannotBeDescribedDoesNotStart) {
    startWith(listed(theDisk, none));
    sim::DeviceDescription device = enclosure();
    part(device, "enclosure disk").rawProperties["DeviceDesc"] = {STATUS_OBJECT_NAME_NOT_FOUND, {}, 0};
    sim::DeviceNode &top = plugBelowRoot(device);
    expectCode31("enclosure disk", STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to get deviceDescription, status = 0xc0000034");
    machine().unplug(top);

    device = enclosure();
    part(device, "enclosure disk").rawProperties["InstanceId"] = {STATUS_ACCESS_DENIED, {}, 0};
    plugBelowRoot(device);
    expectCode31("enclosure disk", STATUS_ACCESS_DENIED);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to get deviceInstancePath, status = 0xc0000022");
}

TEST_F(Thunderbolt, ASecondDescriptorThatFailsKeepsTheDiskFromStarting) {
    startWith(listed(theDisk, none));
    plugDisk();
    machine().unplug(deviceNode("enclosure disk"));
    failInAdd("IoBuildDeviceIoControlRequest", 2);
    plugDisk();
    expectCode31("enclosure disk", STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to get disk info, status = 0xc000009a");
}

TEST_F(Thunderbolt, WhoseQueueCannotBeCreatedDoesNotStart) {
    startWith(listed(none, theDisk));
    failInAdd("WdfIoQueueCreate");
    plugDisk();
    machine().unplug(deviceNode("enclosure disk"));
    failInAdd("WdfIoQueueCreate");
    plugDisk();
    expectCode31("enclosure disk", STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(addOf("enclosure disk").log.back(), "ERROR Failed to init i/o queue, status = 0xc000009a");
}

TEST_F(Thunderbolt, NoMemoryWhileRulesAreComparedBlocksTheDisk) {
    unload();
    setParameter(u"LogLevel", 2);
    startWith(listed(theDisk, theDisk));
    failInAdd("FsRtlIsNameInExpression", 1, STATUS_NO_MEMORY, true);
    plugDisk();
    machine().unplug(deviceNode("enclosure disk"));
    failInAdd("FsRtlIsNameInExpression", 1, STATUS_NO_MEMORY, true);
    plugDisk();
    expectDisabled("enclosure disk");
}

TEST_F(Thunderbolt, LongTextsAreCutInTheMessage) {
    startWith(listed(theDisk, none));
    sim::DeviceDescription device = enclosure();
    sim::DeviceDescription &disk = part(device, "enclosure disk");
    disk.disk->serial = std::string(128, 's');
    disk.description = std::u16string(200, u'd');
    plugBelowRoot(device);
    EXPECT_THAT(addOf("enclosure disk").log, Contains(HasSubstr("SerialNumber=" + std::string(127, 's') +
                                                                ", deviceName=SSD 980 PRO     , "
                                                                "deviceDescription=" +
                                                                std::string(99, 'd') + ", ")));
}

TEST_F(Thunderbolt, WhateverFailsABlockedDiskIsNeverLeftOpenOnceItIsKnown) {
    startWith(listed(none, none));
    plugDisk();
    machine().unplug(deviceNode("enclosure disk"));
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plugDisk();
        const Lines &log = addOf("enclosure disk").log;
        const bool known = testing::Matches(Contains("INFO Release the rule storage resources"))(log);
        if (known) {
            EXPECT_FALSE(node.started());
        }
        machine().unplug(node);
    });
}

} // namespace
} // namespace behaviour
