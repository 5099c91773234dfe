// Opening, cleaning up and closing.

#include "queue_fixture.h"

namespace sim::test {

namespace {

using Events = std::vector<std::string>;

class FileObjectTest : public QueueTest {
  protected:
    FileObjectTest() {
        beforeCreate = [this](PWDFDEVICE_INIT init) {
            WDF_FILEOBJECT_CONFIG config;
            WDF_FILEOBJECT_CONFIG_INIT(&config, created, closed, cleaned);
            WDF_OBJECT_ATTRIBUTES attributes;
            WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
            attributes.SynchronizationScope = scope;
            attributes.EvtDestroyCallback = [](WDFOBJECT) { noteEvent("destroy"); };
            WdfDeviceInitSetFileObjectConfig(init, &config, &attributes);
        };
    }
    static VOID created(WDFDEVICE, WDFREQUEST request, WDFFILEOBJECT file) {
        auto &test = *static_cast<FileObjectTest *>(current);
        test.note("create by " + std::to_string(IoGetRequestorProcessId(WdfRequestWdmGetIrp(request))));
        EXPECT_EQ(WdfRequestGetFileObject(request), file);
        EXPECT_EQ(currentThread().irql, PASSIVE_LEVEL);
        test.opened = file;
        if (test.keepsCreate) {
            test.kept = request;
        } else {
            WdfRequestComplete(request, test.createStatus);
        }
    }
    static VOID closed(WDFFILEOBJECT) { noteEvent("close"); }
    static VOID cleaned(WDFFILEOBJECT) { noteEvent("cleanup"); }

    NTSTATUS open(TestIrp &irp, PFILE_OBJECT file) {
        setIrpThread(irp.irp);
        return irp.major(IRP_MJ_CREATE).file(file).send(deviceObject());
    }
    void send(UCHAR major, PFILE_OBJECT file) {
        TestIrp irp;
        EXPECT_EQ(irp.major(major).file(file).send(deviceObject()), STATUS_SUCCESS);
    }

    WDF_SYNCHRONIZATION_SCOPE scope = WdfSynchronizationScopeNone;
    NTSTATUS createStatus = STATUS_SUCCESS;
    bool keepsCreate = false;
    WDFREQUEST kept = nullptr;
    WDFFILEOBJECT opened = nullptr;
    FILE_OBJECT file{};
    FILE_OBJECT other{};
};

TEST_F(FileObjectTest, LifeOfAnOpen) {
    plugAndStart();
    currentThread().processId = 1234;
    TestIrp irp;
    EXPECT_EQ(open(irp, &file), STATUS_PENDING); // also when completed inside
    EXPECT_TRUE(irp.completed());
    EXPECT_EQ(stoppedBy([&] { WdfObjectDelete(opened); }), "framework object");
    send(IRP_MJ_CLEANUP, &file);
    send(IRP_MJ_CLOSE, &file);
    EXPECT_EQ(takeEvents(), (Events{"create by 1234", "cleanup", "close", "destroy"}));
}

TEST_F(FileObjectTest, AFailedCreateDestroysTheFileObjectFirstAndCallsNothingElse) {
    plugAndStart();
    createStatus = STATUS_ACCESS_DENIED;
    TestIrp irp;
    EXPECT_EQ(open(irp, &file), STATUS_PENDING);
    EXPECT_EQ(irp.status(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(takeEvents(), (Events{"create by 4", "destroy"}));
}

TEST_F(FileObjectTest, CleanupFlushesQueuedRequestsOfThatFileOnly) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp create;
    open(create, &file);
    TestIrp mine;
    TestIrp others;
    TestIrp held;
    presentAndForward(mine.file(&file), queue);
    presentAndForward(others.file(&other), queue);
    const WDFREQUEST request = present(held.file(&file));
    send(IRP_MJ_CLEANUP, &file);
    EXPECT_EQ(mine.status(), STATUS_CANCELLED);
    EXPECT_TRUE(mine.completed());
    EXPECT_FALSE(others.completed());
    EXPECT_FALSE(held.completed()); // with the driver: not touched
    WdfRequestComplete(request, STATUS_SUCCESS);
    send(IRP_MJ_CLOSE, &file);
    others.cancel();
}

TEST_F(FileObjectTest, OpenWithoutWdmFileObject) {
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(open(irp, nullptr), STATUS_DEVICE_CONFIGURATION_ERROR);
    EXPECT_EQ(takeEvents(), Events{});
}

TEST_F(FileObjectTest, ACreateMayBeKept) {
    plugAndStart();
    keepsCreate = true;
    TestIrp irp;
    EXPECT_EQ(open(irp, &file), STATUS_PENDING);
    EXPECT_FALSE(irp.completed());
    EXPECT_EQ(WdfRequestRequeue(kept), STATUS_INVALID_DEVICE_REQUEST);
    WdfRequestComplete(kept, STATUS_SUCCESS);
    EXPECT_EQ(irp.status(), STATUS_SUCCESS);
    send(IRP_MJ_CLOSE, &file);
}

TEST_F(FileObjectTest, AFiltersCleanupAndCloseGoOn) {
    makesFilter = true;
    plugAndStart();
    bus.seen.clear();
    TestIrp irp;
    open(irp, &file);
    send(IRP_MJ_CLEANUP, &file);
    send(IRP_MJ_CLOSE, &file);
    EXPECT_EQ(bus.seen, (Events{"cleanup", "close"}));
    EXPECT_EQ(takeEvents(), (Events{"create by 4", "cleanup", "close", "destroy"}));
}

TEST_F(FileObjectTest, ScopeQueueFailsTheDevice) {
    loadDriver();
    scope = WdfSynchronizationScopeQueue;
    makesFilter = false;
    const PDEVICE_OBJECT one = bus.plug();
    EXPECT_EQ(add(one), STATUS_INVALID_DEVICE_REQUEST);
    bus.unplug(one);
}

TEST_F(FileObjectTest, WithoutConfigurationEverybodyMayOpenAFunctionDevice) {
    beforeCreate = [](PWDFDEVICE_INIT) {};
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(open(irp, &file), STATUS_SUCCESS);
    send(IRP_MJ_CLEANUP, &file);
    send(IRP_MJ_CLOSE, &file);
}

TEST_F(FileObjectTest, WrongConfigurationHasNoEffect) {
    beforeCreate = [](PWDFDEVICE_INIT init) {
        WDF_FILEOBJECT_CONFIG config;
        WDF_FILEOBJECT_CONFIG_INIT(&config, created, closed, cleaned);
        config.Size = 1;
        WdfDeviceInitSetFileObjectConfig(init, &config, nullptr);
    };
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(open(irp, &file), STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), Events{});
}

} // namespace

} // namespace sim::test
