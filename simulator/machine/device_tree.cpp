#include "device_tree.h"

#include "../kernel/interleaving.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sim::machine {

namespace {

/// The node pointer of an object that drivers read without any lock of ours.
void setDeviceNode(PDEVICE_OBJECT device, DeviceNodeRecord *record) {
    __atomic_store_n(&device->DeviceObjectExtension->DeviceNode, static_cast<PVOID>(record), __ATOMIC_RELEASE);
}

void linkRecord(DeviceNodeRecord &record, DeviceNodeRecord &parent) {
    record.parent = &parent;
    if (parent.lastChild != nullptr) {
        parent.lastChild->sibling = &record;
    } else {
        parent.child = &record;
    }
    parent.lastChild = &record;
}

void unlinkRecord(DeviceNodeRecord &record) {
    if (record.parent == nullptr) {
        return;
    }
    DeviceNodeRecord &parent = *record.parent;
    DeviceNodeRecord **link = &parent.child;
    DeviceNodeRecord *before = nullptr;
    while (*link != &record) {
        before = *link;
        link = &before->sibling;
    }
    *link = record.sibling;
    if (parent.lastChild == &record) {
        parent.lastChild = before;
    }
    record.sibling = nullptr;
}

} // namespace

NodeClaim::~NodeClaim() {
    if (node_ != nullptr) {
        tree_->release(*node_);
    }
}

void DeviceTree::setRoot(std::shared_ptr<Node> root) {
    const std::lock_guard guard(mutex);
    root_ = std::move(root);
    byDevice_[root_->state.device] = root_.get();
    setDeviceNode(root_->state.device, &root_->record);
}

bool DeviceTree::link(const std::shared_ptr<Node> &node, Node &parent) {
    const std::lock_guard guard(mutex);
    if (!parent.state.acceptsChildren() || node->hardware()->above == nullptr) {
        return false;
    }
    node->state.parent = &parent;
    node->state.owner = std::this_thread::get_id();
    parent.state.children.push_back(node);
    byDevice_[node->state.device] = node.get();
    if (node->description().hasParent) {
        linkRecord(node->record, parent.record);
    }
    setDeviceNode(node->state.device, &node->record);
    return true;
}

void DeviceTree::unlink(Node &node) {
    const std::lock_guard guard(mutex);
    unlinkRecord(node.record);
    auto &siblings = node.state.parent->state.children;
    const auto found =
        std::find_if(siblings.begin(), siblings.end(), [&](const auto &one) { return one.get() == &node; });
    removed_.push_back(*found);
    siblings.erase(found);
    node.state.parent = nullptr;
    node.state.gone = true;
}

void DeviceTree::forget(Node &node) {
    const std::lock_guard guard(mutex);
    setDeviceNode(node.state.device, nullptr);
    byDevice_.erase(node.state.device);
    node.state.device = nullptr;
    node.state.stack.clear();
}

Node *DeviceTree::byName(std::string_view name) {
    for (Node *node : all()) {
        if (node->description().name == name) {
            return node;
        }
    }
    return nullptr;
}

Node *DeviceTree::byDevice(PDEVICE_OBJECT device) {
    const std::lock_guard guard(mutex);
    const auto found = byDevice_.find(device);
    return found == byDevice_.end() ? nullptr : found->second;
}

bool DeviceTree::hadDevice(PDEVICE_OBJECT device) {
    const std::lock_guard guard(mutex);
    return byDevice_.contains(device) || std::any_of(removed_.begin(), removed_.end(), [device](const auto &node) {
               return node->record.physicalDeviceObject == device;
           });
}

Node *DeviceTree::byHardware(const Hardware &hardware) {
    for (Node *node : all()) {
        if (node->hardware().get() == &hardware) {
            return node;
        }
    }
    return nullptr;
}

std::vector<Node *> DeviceTree::all() {
    const std::lock_guard guard(mutex);
    std::vector<Node *> result;
    collect(*root_, result);
    return result;
}

void DeviceTree::collect(const Node &node, std::vector<Node *> &result) const {
    for (const auto &child : node.state.children) {
        result.push_back(child.get());
        collect(*child, result);
    }
}

NodeClaim DeviceTree::claim(Node &node) {
    mayInterleave();
    std::unique_lock lock(mutex);
    const std::thread::id self = std::this_thread::get_id();
    if (node.state.owner == self) {
        throw std::logic_error("device \"" + node.description().name + "\" is being worked on by this very thread");
    }
    while (node.state.owner != std::thread::id()) {
        ++node.state.claimants;
        ++claimants_;
        released_.wait(lock, [&, before = node.state.releases] { return node.state.releases != before; });
    }
    if (node.state.gone) {
        return {};
    }
    node.state.owner = self;
    return {*this, node};
}

void DeviceTree::release(Node &node) {
    const std::lock_guard guard(mutex);
    node.state.owner = {};
    ++node.state.releases;
    claimants_ -= std::exchange(node.state.claimants, 0); // they are on their way, and may come to wait again
    released_.notify_all();
}

} // namespace sim::machine
