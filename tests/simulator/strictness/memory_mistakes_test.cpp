// What a driver does wrong with pool memory.

#include "wrong_driver.h"

#include <cstring>

namespace sim::strictness {
namespace {

constexpr ULONG ourTag = 'gorW';

unsigned char *allocate(SIZE_T bytes, POOL_FLAGS flags = POOL_FLAG_NON_PAGED) {
    return static_cast<unsigned char *>(ExAllocatePool2(flags, bytes, ourTag));
}

void freeWithAnotherTag(WDFDEVICE, PDEVICE_OBJECT) {
    ExFreePoolWithTag(allocate(16), 'rehO');
}

void freeTwice(WDFDEVICE, PDEVICE_OBJECT) {
    unsigned char *block = allocate(16);
    ExFreePoolWithTag(block, ourTag);
    ExFreePoolWithTag(block, ourTag);
}

void freeTheMiddle(WDFDEVICE, PDEVICE_OBJECT) {
    ExFreePoolWithTag(allocate(64) + 16, ourTag);
}

void freeTheStack(WDFDEVICE, PDEVICE_OBJECT) {
    int local = 0;
    ExFreePoolWithTag(&local, ourTag);
}

void passTooLongAString(WDFDEVICE, PDEVICE_OBJECT) {
    UNICODE_STRING longer{32, 32, reinterpret_cast<PWCH>(allocate(16))};
    UNICODE_STRING other{32, 32, const_cast<PWCH>(L"sixteen letters!")};
    RtlEqualUnicodeString(&longer, &other, FALSE);
}

void passFreedMemory(WDFDEVICE, PDEVICE_OBJECT) {
    unsigned char *block = allocate(16);
    UNICODE_STRING gone{4, 4, reinterpret_cast<PWCH>(block)};
    ExFreePoolWithTag(block, ourTag);
    UNICODE_STRING other{4, 4, const_cast<PWCH>(L"xy")};
    RtlEqualUnicodeString(&gone, &other, FALSE);
}

void askForNothing(WDFDEVICE, PDEVICE_OBJECT) {
    allocate(0);
}

void askForNoKind(WDFDEVICE, PDEVICE_OBJECT) {
    allocate(8, 0);
}

void pagedPoolUnderASpinLock(WDFDEVICE, PDEVICE_OBJECT) {
    raiseToDispatchLevel();
    allocate(8, POOL_FLAG_PAGED);
}

void touchPagedMemoryAtDispatchLevel(WDFDEVICE, PDEVICE_OBJECT) {
    auto *event = reinterpret_cast<PRKEVENT>(allocate(sizeof(KEVENT), POOL_FLAG_PAGED));
    raiseToDispatchLevel();
    KeSetEvent(event, 0, FALSE);
}

void forgetMemory(WDFDEVICE, PDEVICE_OBJECT) {
    allocate(24);
}

INSTANTIATE_TEST_SUITE_P(
    Memory, CaughtMistakes,
    testing::Values(
        Mistake{"WrongTag", freeWithAnotherTag, "pool tag", "ExFreePoolWithTag", "freed with tag .Oher.*Wrog"},
        Mistake{"DoubleFree", freeTwice, "(double free|pool address)", "ExFreePoolWithTag", ""},
        Mistake{"MiddleOfABlock", freeTheMiddle, "pool address", "ExFreePoolWithTag", ""},
        Mistake{"NotABlock", freeTheStack, "pool address", "ExFreePoolWithTag", ""},
        Mistake{"StringBeyondItsBuffer", passTooLongAString, "pool overrun", "RtlEqualUnicodeString",
                "run over the end of"},
        Mistake{"NoBytes", askForNothing, "pool size", "ExAllocatePool2", ""},
        Mistake{"NoKind", askForNoKind, "pool kind", "ExAllocatePool2", ""},
        Mistake{"PagedPoolAtDispatchLevel", pagedPoolUnderASpinLock, "irql", "ExAllocatePool2", ""},
        Mistake{"PagedMemoryAtDispatchLevel", touchPagedMemoryAtDispatchLevel, "irql", "KeSetEvent",
                "touched paged pool"},
        Mistake{"ForgottenMemory", forgetMemory, "", "non-paged pool", "Wrog.*24 bytes.*allocated by .*allocate"}),
    nameOf);

/// What is written past a block is noticed when it happens (by the address sanitizer) or when the block is freed.
void writeBehindTheEnd(WDFDEVICE, PDEVICE_OBJECT) {
    unsigned char *block = allocate(16);
    volatile SIZE_T behind = 16;
    block[behind] = 1;
    ExFreePoolWithTag(block, ourTag);
}

/// Written to after it was freed: at once, or when the block's memory is given back.
void writeAfterFree(WDFDEVICE, PDEVICE_OBJECT) {
    unsigned char *block = allocate(16);
    ExFreePoolWithTag(block, ourTag);
    *static_cast<volatile unsigned char *>(block) = 1;
}

TEST(MemoryMistakes, WritingBehindTheEndStops) {
    const Mistake mistake{"x", writeBehindTheEnd, "x", {}, {}};
    EXPECT_DEATH(run(mistake), "bug check .pool overrun. ExFreePoolWithTag|AddressSanitizer.*overflow|poison");
}

TEST(MemoryMistakes, WritingAfterTheFreeStops) {
    const Mistake mistake{"x", writeAfterFree, "x", {}, {}};
    EXPECT_DEATH(run(mistake), "bug check .use after free.|AddressSanitizer.*use-after|poison");
}

TEST(MemoryMistakes, PassingFreedMemoryStops) {
    const Mistake mistake{"x", passFreedMemory, "x", {}, {}};
    EXPECT_DEATH(run(mistake), "bug check .use after free. RtlEqualUnicodeString|AddressSanitizer.*use-after|poison");
}

TEST(MemoryMistakes, MemoryIsZeroUnlessAskedForAsItIsAndThenItIsNot) {
    std::vector<unsigned char> zeroed;
    std::vector<unsigned char> asItIs;
    const Mistake none{"x",
                       [&](WDFDEVICE, PDEVICE_OBJECT) {
                           unsigned char *first = allocate(64);
                           unsigned char *second = allocate(64, POOL_FLAG_NON_PAGED | POOL_FLAG_UNINITIALIZED);
                           zeroed.assign(first, first + 64);
                           asItIs.assign(second, second + 64);
                           ExFreePoolWithTag(first, ourTag);
                           ExFreePoolWithTag(second, ourTag);
                       },
                       {},
                       {},
                       {}};
    EXPECT_THAT(run(none), testing::IsEmpty());
    EXPECT_THAT(zeroed, testing::Each(0));
    EXPECT_THAT(asItIs, testing::Not(testing::Contains(0)));
}

} // namespace
} // namespace sim::strictness
