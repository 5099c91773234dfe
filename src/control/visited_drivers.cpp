#include "control/visited_drivers.h"

#include "support/pool_memory.h"

namespace {

RTL_GENERIC_COMPARE_RESULTS NTAPI compareDrivers(PRTL_AVL_TABLE, PVOID first, PVOID second) {
    const auto a = reinterpret_cast<ULONG_PTR>(*static_cast<PDRIVER_OBJECT *>(first));
    const auto b = reinterpret_cast<ULONG_PTR>(*static_cast<PDRIVER_OBJECT *>(second));
    if (a == b) {
        return GenericEqual;
    }
    return a < b ? GenericLessThan : GenericGreaterThan;
}

PVOID NTAPI allocateElement(PRTL_AVL_TABLE, CLONG bytes) {
    return ExAllocatePool2(POOL_FLAG_PAGED, bytes, tableEntryPoolTag);
}

VOID NTAPI freeElement(PRTL_AVL_TABLE, PVOID buffer) {
    ExFreePoolWithTag(buffer, tableEntryPoolTag);
}

} // namespace

VisitedDrivers::VisitedDrivers() {
    RtlInitializeGenericTableAvl(&table_, compareDrivers, allocateElement, freeElement, nullptr);
}

VisitedDrivers::~VisitedDrivers() {
    for (;;) {
        PVOID restartKey = nullptr; // a fresh start each time: deleting leaves the old one dangling
        PVOID element = RtlEnumerateGenericTableWithoutSplayingAvl(&table_, &restartKey);
        if (element == nullptr) {
            return;
        }
        RtlDeleteElementGenericTableAvl(&table_, element);
    }
}

bool VisitedDrivers::contains(PDRIVER_OBJECT driver) {
    return RtlLookupElementGenericTableAvl(&table_, &driver) != nullptr;
}

NTSTATUS VisitedDrivers::insert(PDRIVER_OBJECT driver) {
    return RtlInsertElementGenericTableAvl(&table_, &driver, sizeof(driver), nullptr) != nullptr
               ? STATUS_SUCCESS
               : STATUS_INSUFFICIENT_RESOURCES;
}
