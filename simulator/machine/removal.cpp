#include "plug_and_play.h"

#include "../kernel/kernel.h"
#include "../kernel/strings.h"
#include "../kernel/violation.h"

#include <algorithm>
#include <stdexcept>

namespace sim::machine {

namespace {

/// DEVICE_OBJECT.ReferenceCount counts the handles that are open on an object.
bool hasOpenHandles(const std::vector<StackEntry> &stack) {
    return std::any_of(stack.begin(), stack.end(), [](const StackEntry &entry) {
        return __atomic_load_n(&entry.device->ReferenceCount, __ATOMIC_ACQUIRE) > 0;
    });
}

} // namespace

void PlugAndPlay::unplug(Node &node) {
    Operation operation(*this);
    {
        const std::lock_guard guard(tree_.mutex);
        disconnectHardware(*node.hardware());
    }
    // Another thread may just be cycling its port, so the device may have a node that is newer than the caller's.
    while (Node *present = tree_.byHardware(*node.hardware())) {
        if (const NodeClaim claim = tree_.claim(*present)) {
            takeAway(*present, Manner::surprise);
        }
    }
}

Node &PlugAndPlay::replug(Node &node) {
    Operation operation(*this);
    Node *again = cycle(node);
    if (again == nullptr) {
        throw std::logic_error("\"" + node.description().name + "\" or its parent is gone");
    }
    return *again;
}

/// Takes the node away and enumerates the same thing again. Null when it is gone or goes meanwhile.
Node *PlugAndPlay::cycle(Node &node) {
    Node *parent = nullptr;
    {
        const NodeClaim claim = tree_.claim(node);
        if (!claim) {
            return nullptr;
        }
        parent = static_cast<Node *>(node.parent());
        takeAway(node, Manner::surprise);
    }
    return enumerate(node.hardware(), *parent);
}

void PlugAndPlay::removeDevicesOf(PDRIVER_OBJECT driver) {
    Operation operation(*this);
    const std::u16string name(view(driver->DriverName));
    std::vector<Node *> nodes = tree_.all();
    std::reverse(nodes.begin(), nodes.end());
    for (Node *node : nodes) {
        const std::vector<std::u16string> stack = node->stack();
        if (std::find(stack.begin(), stack.end(), name) == stack.end()) {
            continue;
        }
        if (const NodeClaim claim = tree_.claim(*node)) {
            {
                const std::lock_guard guard(tree_.mutex);
                disconnectHardware(*node->hardware());
            }
            takeAway(*node, Manner::orderly);
        }
    }
}

/// The node is this thread's; afterwards it has left the tree.
void PlugAndPlay::takeAway(Node &node, Manner manner) {
    takeChildrenAway(node, manner);
    const bool running = node.started();
    const bool bySurprise = running && (manner == Manner::surprise || !agreesToRemoval(node));
    node.bus->markMissing();
    if (node.busList != nullptr) {
        node.busList->drop(*node.bus);
    }
    const bool removed = removeStack(node, bySurprise ? StackRemoval::surprise : StackRemoval::orderly);
    tree_.unlink(node);
    if (removed) {
        leavePlugAndPlay(node);
    }
    notifyChanged(node);
}

// learn.microsoft.com: IRP_MN_QUERY_REMOVE_DEVICE. The I/O manager says no for a device with open handles.
bool PlugAndPlay::agreesToRemoval(Node &node) {
    {
        const std::lock_guard guard(tree_.mutex);
        if (hasOpenHandles(node.state.stack)) {
            return false;
        }
    }
    PDEVICE_OBJECT device = node.physicalDevice();
    const PnpResult answer = sendToStack(device, IRP_MN_QUERY_REMOVE_DEVICE, "IRP_MN_QUERY_REMOVE_DEVICE");
    if (!NT_SUCCESS(answer.status)) {
        sendToStack(device, IRP_MN_CANCEL_REMOVE_DEVICE, "IRP_MN_CANCEL_REMOVE_DEVICE");
        return false;
    }
    return true;
}

/// The last thing that happens to a node: Plug and Play drops the physical device object.
void PlugAndPlay::leavePlugAndPlay(Node &node) {
    tree_.forget(node);
    kernel().objects.dereference(node.record.physicalDeviceObject, nullptr);
}

void PlugAndPlay::takeChildrenAway(Node &node, Manner manner) {
    std::vector<std::shared_ptr<Node>> children;
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.departing = true;
        children = node.state.children;
    }
    std::reverse(children.begin(), children.end());
    for (const auto &child : children) {
        if (const NodeClaim claim = tree_.claim(*child)) {
            takeAway(*child, manner);
        }
    }
}

/// Takes every driver away from above the physical device object. False when an open handle postpones that.
bool PlugAndPlay::removeStack(Node &node, StackRemoval how) {
    setInterfaces(node, false);
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.started = false;
        node.state.childList = nullptr;
        node.state.departing = true;
    }
    if (how == StackRemoval::surprise) {
        sendToStack(node.physicalDevice(), IRP_MN_SURPRISE_REMOVAL, "IRP_MN_SURPRISE_REMOVAL");
    }
    if (how != StackRemoval::afterFailure && postponeRemoval(node)) {
        return false;
    }
    finishRemoval(node);
    return true;
}

// learn.microsoft.com: IRP_MN_SURPRISE_REMOVAL: the removal waits for the last handle.
bool PlugAndPlay::postponeRemoval(Node &node) {
    const std::lock_guard guard(tree_.mutex);
    std::erase(postponed_, &node);
    if (!hasOpenHandles(node.state.stack)) {
        return false;
    }
    postponed_.push_back(&node);
    return true;
}

void PlugAndPlay::finishRemoval(Node &node) {
    PDEVICE_OBJECT device = node.record.physicalDeviceObject;
    sendToStack(device, IRP_MN_REMOVE_DEVICE, "IRP_MN_REMOVE_DEVICE");
    if (device->AttachedDevice != nullptr) {
        bugCheck("device stack", "IRP_MN_REMOVE_DEVICE",
                 toUtf8(view(device->AttachedDevice->DriverObject->DriverName)) + " stays in the stack of \"" +
                     node.description().name + "\" after its removal",
                 nullptr);
    }
    const std::lock_guard guard(tree_.mutex);
    node.state.departing = node.state.gone;
    node.state.interfaces.clear();
    if (node.state.stack.size() > 1) {
        node.state.stack.resize(1);
    }
}

void PlugAndPlay::finishPostponedRemovals() {
    std::vector<Node *> waiting;
    {
        const std::lock_guard guard(tree_.mutex);
        waiting = postponed_;
    }
    for (Node *node : waiting) {
        const NodeClaim claim = tree_.claim(*node); // nobody else works on a node that has left the tree
        if (!takeFromPostponed(*node)) {
            continue;
        }
        finishRemoval(*node);
        if (node->isGone()) {
            leavePlugAndPlay(*node);
        }
    }
}

/// True when the node's handles are closed by now; this thread then finishes its removal. Another one may have come
/// first and just be freeing the stack.
bool PlugAndPlay::takeFromPostponed(Node &node) {
    const std::lock_guard guard(tree_.mutex);
    const auto found = std::find(postponed_.begin(), postponed_.end(), &node);
    if (found == postponed_.end() || hasOpenHandles(node.state.stack)) {
        return false;
    }
    postponed_.erase(found);
    return true;
}

} // namespace sim::machine
