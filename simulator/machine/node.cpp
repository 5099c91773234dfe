#include "node.h"

#include "../kernel/security.h"

namespace sim::machine {

namespace {

UNICODE_STRING counted(std::u16string &text) {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(char16_t));
    return {bytes, bytes, reinterpret_cast<PWCH>(text.data())};
}

} // namespace

Node::Node(std::mutex &treeMutex, std::shared_ptr<Hardware> hardware, PDEVICE_OBJECT physicalDevice)
    : mutex_(treeMutex), hardware_(std::move(hardware)), instancePath_(hardware_->description.instanceId),
      serviceName_(hardware_->description.service.value_or(u"")) {
    state.device = physicalDevice;
    record.physicalDeviceObject = physicalDevice;
    record.instancePath = counted(instancePath_);
    record.serviceName = counted(serviceName_);
}

DeviceNode *Node::parent() const {
    const std::lock_guard guard(mutex_);
    return state.parent;
}

std::vector<DeviceNode *> Node::children() const {
    const std::lock_guard guard(mutex_);
    std::vector<DeviceNode *> result;
    for (const auto &child : state.children) {
        result.push_back(child.get());
    }
    return result;
}

PDEVICE_OBJECT Node::physicalDevice() const {
    const std::lock_guard guard(mutex_);
    return state.device;
}

bool Node::started() const {
    const std::lock_guard guard(mutex_);
    return state.started;
}

ULONG Node::problemCode() const {
    const std::lock_guard guard(mutex_);
    return state.problemCode;
}

NTSTATUS Node::problemStatus() const {
    const std::lock_guard guard(mutex_);
    return state.problemStatus;
}

bool Node::hidden() const {
    const std::lock_guard guard(mutex_);
    return state.hidden;
}

bool Node::everStarted() const {
    const std::lock_guard guard(mutex_);
    return state.everStarted;
}

std::vector<std::u16string> Node::stack() const {
    const std::lock_guard guard(mutex_);
    std::vector<std::u16string> result;
    for (const StackEntry &entry : state.stack) {
        result.push_back(entry.driver);
    }
    return result;
}

bool Node::isGone() const {
    const std::lock_guard guard(mutex_);
    return state.gone;
}

std::string Node::security() const {
    const std::lock_guard guard(mutex_);
    return state.device == nullptr ? std::string() : sddlOf(deviceSecurity(state.device));
}

} // namespace sim::machine
