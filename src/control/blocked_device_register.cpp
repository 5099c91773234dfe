#include "control/blocked_device_register.h"

#include "log/log.h"
#include "support/locks.h"
#include "support/placement_new.h"
#include "support/pool_memory.h"

namespace {

struct Entry {
    LIST_ENTRY links;
    KString hardwareIds;
};

Entry *entryOf(PLIST_ENTRY links) {
    return CONTAINING_RECORD(links, Entry, links);
}

void unlinkAndFree(Entry *entry) {
    RemoveEntryList(&entry->links); // stops the system when the neighbours' links are broken
    entry->~Entry();
    ExFreePoolWithTag(entry, generalPoolTag);
}

/// The first entry with these ids, or null. The caller holds the lock.
Entry *find(LIST_ENTRY &entries, const UNICODE_STRING &hardwareIds) {
    for (PLIST_ENTRY links = entries.Flink; links != &entries; links = links->Flink) {
        if (equalIgnoringCase(entryOf(links)->hardwareIds, hardwareIds)) {
            return entryOf(links);
        }
    }
    return nullptr;
}

} // namespace

void BlockedDeviceRegister::initialize() {
    ExInitializeResourceLite(&lock_);
    InitializeListHead(&entries_);
}

void BlockedDeviceRegister::destroy() {
    releaseAll();
    ExDeleteResourceLite(&lock_);
}

NTSTATUS BlockedDeviceRegister::add(PDEVICE_OBJECT device, const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"Add blocked device, device object = 0x", hexAddress(device), L", hardwareIds = ", hardwareIds);
    ExclusiveLock hold(lock_);
    void *memory = ExAllocatePool2(POOL_FLAG_PAGED, sizeof(Entry), generalPoolTag);
    if (memory == nullptr) {
        LOG_ERROR(L"Failed to allocate blocked device");
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto *entry = new (InPlace{memory}) Entry{};
    const NTSTATUS status = entry->hardwareIds.copyFrom(hardwareIds);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to hardware id init, status = 0x", hex(status));
        entry->~Entry();
        ExFreePoolWithTag(entry, generalPoolTag);
        return status;
    }
    InsertTailList(&entries_, &entry->links);
    return STATUS_SUCCESS;
}

bool BlockedDeviceRegister::contains(const UNICODE_STRING &hardwareIds) {
    SharedLock hold(lock_);
    return find(entries_, hardwareIds) != nullptr;
}

void BlockedDeviceRegister::remove(const UNICODE_STRING &hardwareIds) {
    LOG_INFO(L"Remove blocked device, hardwareIds = ", hardwareIds);
    ExclusiveLock hold(lock_);
    if (Entry *entry = find(entries_, hardwareIds); entry != nullptr) {
        unlinkAndFree(entry);
    }
}

void BlockedDeviceRegister::releaseAll() {
    LOG_INFO(L"Release blocked devices resources");
    ExclusiveLock hold(lock_);
    while (!IsListEmpty(&entries_)) {
        unlinkAndFree(entryOf(entries_.Flink));
    }
}
