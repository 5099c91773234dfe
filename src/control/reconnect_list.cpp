#include "control/reconnect_list.h"

#include "log/log.h"
#include "support/placement_new.h"
#include "support/pool_memory.h"

ReconnectList::~ReconnectList() {
    while (!IsListEmpty(&entries_)) {
        auto *entry = CONTAINING_RECORD(RemoveHeadList(&entries_), DeviceToReconnect, links);
        entry->~DeviceToReconnect();
        ExFreePoolWithTag(entry, generalPoolTag);
    }
}

NTSTATUS ReconnectList::append(PDEVICE_OBJECT device) {
    LOG_INFO(L"Add device, device object = 0x", hexAddress(device));
    void *memory = ExAllocatePool2(POOL_FLAG_PAGED, sizeof(DeviceToReconnect), generalPoolTag);
    if (memory == nullptr) {
        LOG_ERROR(L"Failed to allocate DeviceToReconnect");
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto *entry = new (InPlace{memory}) DeviceToReconnect{};
    entry->device = DeviceReference::share(device);
    InsertTailList(&entries_, &entry->links);
    return STATUS_SUCCESS;
}

bool ReconnectList::contains(PDEVICE_OBJECT device) const {
    for (PLIST_ENTRY links = entries_.Flink; links != &entries_; links = links->Flink) {
        if (CONTAINING_RECORD(links, DeviceToReconnect, links)->device.get() == device) {
            return true;
        }
    }
    return false;
}
