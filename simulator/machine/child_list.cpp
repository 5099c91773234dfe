#include "child_list.h"

#include "../kernel/kernel.h"

#include <algorithm>

namespace sim::machine {

namespace {
constexpr ULONG relationsTag = 0x20706E50; // "Pnp "
}

PDEVICE_RELATIONS allocateRelations(std::size_t count) {
    const std::size_t bytes = sizeof(DEVICE_RELATIONS) + count * sizeof(PDEVICE_OBJECT);
    return static_cast<PDEVICE_RELATIONS>(kernel().pool.allocate(bytes, relationsTag, true, true, true, nullptr));
}

void freeRelations(PDEVICE_RELATIONS relations) {
    kernel().pool.free(relations, 0, nullptr, "IRP_MN_QUERY_DEVICE_RELATIONS");
}

void ChildList::add(PhysicalDevice &device) {
    const std::lock_guard guard(mutex_);
    devices_.push_back(&device);
}

void ChildList::drop(const PhysicalDevice &device) {
    const std::lock_guard guard(mutex_);
    std::erase(devices_, &device);
}

PhysicalDevice *ChildList::at(std::uint32_t address) const {
    const std::lock_guard guard(mutex_);
    const auto found = std::find_if(devices_.begin(), devices_.end(), [&](const PhysicalDevice *device) {
        return device->hardware().address == address;
    });
    return found == devices_.end() ? nullptr : *found;
}

void ChildList::report(PIRP irp) const {
    const std::lock_guard guard(mutex_);
    auto *before = reinterpret_cast<PDEVICE_RELATIONS>(irp->IoStatus.Information);
    const std::size_t already = before == nullptr ? 0 : before->Count;
    PDEVICE_RELATIONS relations = allocateRelations(already + devices_.size());
    for (std::size_t i = 0; i < already; ++i) {
        relations->Objects[relations->Count++] = before->Objects[i];
    }
    for (PhysicalDevice *device : devices_) {
        kernel().objects.reference(device->object(), nullptr);
        relations->Objects[relations->Count++] = device->object();
    }
    if (before != nullptr) {
        freeRelations(before);
    }
    irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
    irp->IoStatus.Status = STATUS_SUCCESS;
}

} // namespace sim::machine
