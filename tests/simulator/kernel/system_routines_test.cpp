#include "kernel_fixture.h"

#include <thread>

namespace sim::test {

namespace {

using SystemRoutinesTest = KernelTest;

TEST_F(SystemRoutinesTest, compareMemoryCountsEqualBytes) {
    EXPECT_EQ(RtlCompareMemory("abcd", "abXd", 4), 2u);
    EXPECT_EQ(RtlCompareMemory("abcd", "abcd", 4), 4u);
    EXPECT_EQ(RtlCompareMemory("a", "b", 0), 0u);
}

TEST_F(SystemRoutinesTest, routinesAreFoundByName) {
    Text name(u"ExAllocatePool2");
    EXPECT_EQ(MmGetSystemRoutineAddress(&name), reinterpret_cast<PVOID>(&ExAllocatePool2));
    kernel.systemRoutines[u"ExAllocatePool2"] = this;
    EXPECT_EQ(MmGetSystemRoutineAddress(&name), this);
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { MmGetSystemRoutineAddress(&name); }), "irql");
}

TEST_F(SystemRoutinesTest, bugChecksAndFastFailuresStop) {
    EXPECT_EQ(stoppedBy([] { KeBugCheckEx(0xE3, 1, 2, 3, 4); }), "bug check");
    LIST_ENTRY head;
    LIST_ENTRY entry;
    InitializeListHead(&head);
    InsertTailList(&head, &entry);
    entry.Flink = &entry;
    EXPECT_EQ(stoppedBy([&] { RemoveEntryList(&entry); }), "fast fail");
}

TEST_F(SystemRoutinesTest, callSitesAreNamed) {
    try {
        KeLeaveCriticalRegion();
        FAIL();
    } catch (const Stopped &stopped) {
        EXPECT_EQ(stopped.violation.routine, "KeLeaveCriticalRegion");
        EXPECT_NE(stopped.violation.callSite.find("callSitesAreNamed"), std::string::npos)
            << stopped.violation.callSite;
    }
    EXPECT_EQ(describeCodeAddress(nullptr), "unknown");
}

TEST_F(SystemRoutinesTest, everyFallibleCallIsCountedWhileArmed) {
    ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), 'tseT');
    EXPECT_EQ(kernel.faults.callsSeen(), 0u);
    kernel.faults.arm(true);
    ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), 'tseT');
    EXPECT_EQ(kernel.faults.callsSeen(), 1u);
    kernel.faults.failNth(3, false);
    ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), 'tseT');
    EXPECT_EQ(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), nullptr);
    ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), 'tseT');
    kernel.faults.failNth(5, true);
    EXPECT_EQ(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), nullptr);
    EXPECT_EQ(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'), nullptr);
    kernel.faults.clear();
    EXPECT_EQ(kernel.faults.callsSeen(), 0u);
}

TEST_F(SystemRoutinesTest, chosenStatusGoesWithItsCall) {
    kernel.faults.failNamed("ZwOpenFile", 2, STATUS_SHARING_VIOLATION, true);
    kernel.faults.arm(true);
    EXPECT_FALSE(kernel.faults.shouldFail("ZwOpenFile"));
    EXPECT_TRUE(kernel.faults.shouldFail("ZwOpenFile"));
    EXPECT_EQ(kernel.faults.statusFor("ZwOpenFile", STATUS_UNSUCCESSFUL), STATUS_SHARING_VIOLATION);
    EXPECT_TRUE(kernel.faults.shouldFail("ZwOpenFile"));
    EXPECT_EQ(kernel.faults.statusFor("ZwCreateFile", STATUS_UNSUCCESSFUL), STATUS_UNSUCCESSFUL);
}

TEST_F(SystemRoutinesTest, callbackContractComparesTheThread) {
    EXPECT_EQ(stoppedBy([] { const CallbackContract contract("routine"); }), "");
    EXPECT_EQ(stoppedBy([] {
                  const CallbackContract contract("routine");
                  KeEnterCriticalRegion();
              }),
              "callback contract");
}

TEST_F(SystemRoutinesTest, everyThreadStartsAtPassiveLevelInTheSystemProcess) {
    currentThread().irql = DISPATCH_LEVEL;
    std::thread([] {
        EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
        EXPECT_EQ(PsGetCurrentProcessId(), reinterpret_cast<HANDLE>(4));
    }).join();
}

TEST_F(SystemRoutinesTest, routinesWithoutAMachineStop) {
    EXPECT_EQ(stoppedBy([] { Kernel second({}, false); }), "kernel");
}

} // namespace

} // namespace sim::test
