// A user-mode process against a small driver that a test tells what to do with each request.

#include "simulator/process/unwritten_bytes.h"
#include "simulator/process/user_process.h"
#include "tests/simulator/kernel/kernel_fixture.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <thread>

namespace sim::test {

namespace {

using testing::ElementsAre;

constexpr std::u16string_view processDevice = u"\\Device\\Told";
constexpr std::uint32_t bufferedRead = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x801, METHOD_BUFFERED, FILE_READ_ACCESS);
constexpr std::uint32_t bufferedWrite = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x802, METHOD_BUFFERED, FILE_WRITE_ACCESS);
constexpr std::uint32_t bufferedAny = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x803, METHOD_BUFFERED, FILE_ANY_ACCESS);
constexpr std::uint32_t neitherAny = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x804, METHOD_NEITHER, FILE_ANY_ACCESS);

NTSTATUS finishIrpWith(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

VOID cancelKept(PDEVICE_OBJECT, PIRP irp) {
    releaseCancelLock(irp->CancelIrql);
    finishIrpWith(irp, STATUS_CANCELLED, 0);
}

/// Keeps the IRP where a cancellation finds it.
NTSTATUS keepCancelable(PIRP irp) {
    IoMarkIrpPending(irp);
    __atomic_store_n(&irp->CancelRoutine, PDRIVER_CANCEL{cancelKept}, __ATOMIC_SEQ_CST);
    return STATUS_PENDING;
}

class UserProcessTest : public KernelTest {
  protected:
    UserProcessTest() : driver_(createDriverObject(u"Told")) {
        self = this;
        std::fill(std::begin(driver_->MajorFunction), std::end(driver_->MajorFunction), dispatchTold);
        device_ = createDevice(driver_, 0, FILE_DEVICE_UNKNOWN, 0, processDevice);
        EXPECT_EQ(process.open(processDevice, handle), STATUS_SUCCESS);
        seen.clear();
    }
    ~UserProcessTest() override {
        process.die();
        deleteDevice(device_);
        deleteDriverObject(driver_);
        EXPECT_THAT(kernel.leaks(), testing::IsEmpty());
        self = nullptr;
    }

    /// What the driver does with a control request.
    std::function<NTSTATUS(PIRP)> answer = [](PIRP irp) { return finishIrpWith(irp, STATUS_SUCCESS, 0); };
    NTSTATUS createStatus = STATUS_SUCCESS;
    std::vector<UCHAR> seen; ///< major functions, in order
    std::vector<ULONG> requestors;
    UserProcess process{700};
    UserProcess::Handle handle = 0;
    PDEVICE_OBJECT device() { return device_; }

  private:
    static NTSTATUS dispatchTold(PDEVICE_OBJECT, PIRP irp) {
        const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
        self->seen.push_back(major);
        self->requestors.push_back(IoGetRequestorProcessId(irp));
        if (major == IRP_MJ_DEVICE_CONTROL) {
            return self->answer(irp);
        }
        return finishIrpWith(irp, major == IRP_MJ_CREATE ? self->createStatus : STATUS_SUCCESS, 0);
    }

    static inline UserProcessTest *self = nullptr;
    PDRIVER_OBJECT driver_;
    PDEVICE_OBJECT device_ = nullptr;
};

TEST_F(UserProcessTest, opensByNameAndCountsAsOpenUntilItCloses) {
    EXPECT_EQ(device()->ReferenceCount, 1);
    UserProcess::Handle second = 0;
    EXPECT_EQ(process.open(processDevice, second), STATUS_SUCCESS);
    EXPECT_NE(second, handle);
    EXPECT_EQ(device()->ReferenceCount, 2);
    EXPECT_TRUE(process.close(second));
    EXPECT_FALSE(process.close(second));
    EXPECT_THAT(seen, ElementsAre(IRP_MJ_CREATE, IRP_MJ_CLEANUP, IRP_MJ_CLOSE));
    EXPECT_EQ(process.open(u"\\\\.\\No such thing", second), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(requestors, testing::Each(700U));
}

TEST_F(UserProcessTest, anOpenThatIsRefusedLeavesNothing) {
    createStatus = STATUS_ACCESS_DENIED;
    UserProcess::Handle second = 77;
    EXPECT_EQ(process.open(processDevice, second), STATUS_ACCESS_DENIED);
    EXPECT_EQ(second, 77U);
    EXPECT_EQ(device()->ReferenceCount, 1);
    EXPECT_THAT(seen, ElementsAre(IRP_MJ_CREATE));
}

TEST_F(UserProcessTest, theCodesRightsAreCheckedBeforeTheDriverSeesIt) {
    UserProcess::Handle reader = 0;
    UserProcess::Handle writer = 0;
    UserProcess::Handle nobody = 0;
    process.open(processDevice, reader, GENERIC_READ);
    process.open(processDevice, writer, GENERIC_WRITE);
    process.open(processDevice, nobody, 0x100000 /* SYNCHRONIZE */);
    seen.clear();
    EXPECT_EQ(process.control(reader, {bufferedRead, {}, 0})->status(), STATUS_SUCCESS);
    EXPECT_EQ(process.control(reader, {bufferedWrite, {}, 0})->status(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(process.control(writer, {bufferedRead, {}, 0})->status(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(process.control(writer, {bufferedWrite, {}, 0})->status(), STATUS_SUCCESS);
    EXPECT_EQ(process.control(nobody, {bufferedRead, {}, 0})->status(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(process.control(nobody, {bufferedAny, {}, 0})->status(), STATUS_SUCCESS);
    EXPECT_EQ(process.control(4444, {bufferedAny, {}, 0})->status(), STATUS_INVALID_HANDLE);
    EXPECT_EQ(seen.size(), 3U);
}

TEST_F(UserProcessTest, inputAndOutputShareOneSystemBuffer) {
    answer = [](PIRP irp) {
        const auto &parameters = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
        EXPECT_EQ(parameters.InputBufferLength, 4U);
        EXPECT_EQ(parameters.OutputBufferLength, 6U);
        auto *buffer = static_cast<UCHAR *>(irp->AssociatedIrp.SystemBuffer);
        EXPECT_EQ(buffer[3], 4);
        buffer[0] = 9;
        buffer[4] = 5;
        return finishIrpWith(irp, STATUS_SUCCESS, 5);
    };
    const auto io = process.control(handle, {bufferedRead, {1, 2, 3, 4}, 6});
    EXPECT_EQ(io->status(), STATUS_SUCCESS);
    EXPECT_EQ(io->information(), 5U);
    EXPECT_THAT(io->received(), ElementsAre(9, 2, 3, 4, 5));
    EXPECT_THAT(io->output(), ElementsAre(9, 2, 3, 4, 5, 0xCC)) << "not copied to";
}

TEST_F(UserProcessTest, warningsAreCopiedErrorsAreNot) {
    NTSTATUS status = STATUS_BUFFER_OVERFLOW;
    answer = [&](PIRP irp) {
        std::memset(irp->AssociatedIrp.SystemBuffer, 7, 2);
        return finishIrpWith(irp, status, 2);
    };
    EXPECT_THAT(process.control(handle, {bufferedRead, {}, 2})->output(), ElementsAre(7, 7));
    status = STATUS_BUFFER_TOO_SMALL;
    const auto failed = process.control(handle, {bufferedRead, {}, 2});
    EXPECT_EQ(failed->information(), 2U);
    EXPECT_THAT(failed->output(), ElementsAre(0xCC, 0xCC));
    EXPECT_THAT(failed->received(), testing::IsEmpty());
}

TEST_F(UserProcessTest, withMethodNeitherTheDriverGetsTheCallersPointers) {
    answer = [](PIRP irp) {
        const auto &parameters = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
        EXPECT_EQ(irp->AssociatedIrp.SystemBuffer, nullptr);
        EXPECT_EQ(static_cast<const UCHAR *>(parameters.Type3InputBuffer)[0], 3);
        static_cast<UCHAR *>(irp->UserBuffer)[1] = 8;
        return finishIrpWith(irp, STATUS_SUCCESS, 0);
    };
    EXPECT_THAT(process.control(handle, {neitherAny, {3}, 2})->output(), ElementsAre(0xCC, 8));
}

TEST_F(UserProcessTest, bytesThatTheDriverNeverWroteMustNotReachUserMode) {
    std::size_t written = 0;
    answer = [&](PIRP irp) {
        std::memset(irp->AssociatedIrp.SystemBuffer, 0, written);
        return finishIrpWith(irp, STATUS_SUCCESS, 64);
    };
    for (const std::size_t left : {64, 9, 8}) {
        written = 64 - left;
        EXPECT_EQ(stoppedBy([&] { process.control(handle, {bufferedRead, {}, 64}); }), "unwritten output") << left;
    }
}

TEST_F(UserProcessTest, whatTheCallerGaveItselfIsNoLeak) {
    answer = [](PIRP irp) { return finishIrpWith(irp, STATUS_SUCCESS, 32); };
    std::vector<std::uint8_t> input(32);
    process::markUnwritten(input.data(), 0, input.size());
    EXPECT_EQ(process.control(handle, {bufferedRead, input, 32})->received(), input);
}

TEST_F(UserProcessTest, informationBeyondTheBufferStopsTheRun) {
    answer = [](PIRP irp) { return finishIrpWith(irp, STATUS_SUCCESS, 3); };
    EXPECT_EQ(stoppedBy([&] { process.control(handle, {bufferedRead, {1, 2, 3}, 2}); }), "io information");
}

TEST_F(UserProcessTest, aKeptRequestIsCancelledByItselfByHandleByThreadAndByDeath) {
    answer = [](PIRP irp) { return keepCancelable(irp); };
    const auto one = process.begin(handle, {bufferedRead, {}, 8});
    const auto two = process.begin(handle, {bufferedRead, {}, 8});
    const auto three = process.begin(handle, {bufferedRead, {}, 8, 2});
    const auto four = process.begin(handle, {bufferedRead, {}, 8, 3});
    EXPECT_EQ(process.pending(), 4U);
    EXPECT_TRUE(one->cancel());
    EXPECT_FALSE(one->cancel());
    EXPECT_EQ(one->status(), STATUS_CANCELLED);
    EXPECT_EQ(process.pending(), 3U);
    process.endThread(2);
    EXPECT_TRUE(three->isBack());
    EXPECT_FALSE(two->isBack());
    process.cancelAll(handle);
    EXPECT_TRUE(two->isBack());
    EXPECT_TRUE(four->isBack());
    const auto last = process.begin(handle, {bufferedRead, {}, 8});
    process.die();
    EXPECT_EQ(last->status(), STATUS_CANCELLED);
    EXPECT_EQ(seen.back(), IRP_MJ_CLOSE);
    EXPECT_THAT(process.handles(), testing::IsEmpty());
}

TEST_F(UserProcessTest, whatTheDriverKeepsHoldsTheCloseBack) {
    PIRP kept = nullptr;
    answer = [&](PIRP irp) {
        IoMarkIrpPending(irp);
        kept = irp;
        return STATUS_PENDING;
    };
    const auto io = process.begin(handle, {bufferedRead, {}, 8});
    EXPECT_TRUE(io->cancel()) << "asked for; the driver does not mind";
    process.close(handle);
    EXPECT_THAT(seen, ElementsAre(IRP_MJ_DEVICE_CONTROL, IRP_MJ_CLEANUP));
    EXPECT_EQ(device()->ReferenceCount, 1);
    std::thread([&] { finishIrpWith(kept, STATUS_UNSUCCESSFUL, 0); }).join();
    EXPECT_EQ(io->status(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(seen.back(), IRP_MJ_CLOSE);
    EXPECT_EQ(device()->ReferenceCount, 0);
}

TEST_F(UserProcessTest, aRequestOutlivesTheVariableThatHeldIt) {
    PIRP kept = nullptr;
    answer = [&](PIRP irp) {
        IoMarkIrpPending(irp);
        kept = irp;
        return STATUS_PENDING;
    };
    process.begin(handle, {bufferedRead, {}, 8});
    EXPECT_EQ(process.pending(), 1U);
    finishIrpWith(kept, STATUS_SUCCESS, 0);
    EXPECT_EQ(process.pending(), 0U);
}

TEST_F(UserProcessTest, aWaitedForRequestMayComeBackInAnotherThread) {
    std::thread later;
    answer = [&](PIRP irp) {
        IoMarkIrpPending(irp);
        later = std::thread([irp] {
            std::memset(irp->AssociatedIrp.SystemBuffer, 1, 8);
            finishIrpWith(irp, STATUS_SUCCESS, 8);
        });
        return STATUS_PENDING;
    };
    EXPECT_EQ(process.control(handle, {bufferedRead, {}, 8})->received().size(), 8U);
    later.join();
}

TEST(UnwrittenBytes, areFoundAtTheirPlaceOnly) {
    std::vector<std::uint8_t> buffer(600);
    process::markUnwritten(buffer.data(), 0, buffer.size());
    EXPECT_EQ(process::findUnwritten(buffer.data(), 0, 7), std::nullopt) << "fewer may be there by chance";
    const auto all = process::findUnwritten(buffer.data(), 0, 600);
    ASSERT_TRUE(all);
    EXPECT_EQ(all->end, 600U);
    std::vector<std::uint8_t> moved(buffer.begin() + 1, buffer.end());
    EXPECT_EQ(process::findUnwritten(moved.data(), 0, moved.size()), std::nullopt);
    std::fill(buffer.begin(), buffer.begin() + 300, 0);
    const auto tail = process::findUnwritten(buffer.data(), 0, 600);
    ASSERT_TRUE(tail);
    EXPECT_EQ(tail->begin, 300U);
}

} // namespace

} // namespace sim::test
