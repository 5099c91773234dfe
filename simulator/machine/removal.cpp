#include "plug_and_play.h"

#include "../kernel/kernel.h"
#include "../kernel/strings.h"
#include "../kernel/violation.h"

#include <algorithm>

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
    if (tree_.claim(node)) {
        takeAway(node, Manner::surprise, true);
    }
}

Node &PlugAndPlay::replug(Node &node) {
    Operation operation(*this);
    Node *parent = nullptr;
    if (tree_.claim(node)) {
        parent = static_cast<Node *>(node.parent());
        takeAway(node, Manner::surprise, false);
    }
    Node *again = parent == nullptr ? nullptr : enumerate(node.hardware(), *parent);
    if (again == nullptr) {
        throw std::logic_error("\"" + node.description().name + "\" or its parent is gone");
    }
    return *again;
}

void PlugAndPlay::removeDevicesOf(PDRIVER_OBJECT driver) {
    Operation operation(*this);
    std::vector<Node *> nodes = tree_.all();
    std::reverse(nodes.begin(), nodes.end());
    for (Node *node : nodes) {
        const std::vector<std::u16string> stack = node->stack();
        const std::u16string name(view(driver->DriverName));
        if (std::find(stack.begin(), stack.end(), name) != stack.end() && tree_.claim(*node)) {
            takeAway(*node, Manner::orderly, true);
        }
    }
}

/// The node is this thread's; afterwards it has left the tree. `unplugged`: the thing itself is gone too.
void PlugAndPlay::takeAway(Node &node, Manner manner, bool unplugged) {
    takeChildrenAway(node, manner);
    Node &parent = static_cast<Node &>(*node.parent());
    const bool running = node.started();
    if (manner == Manner::orderly && running && inUse(node)) {
        manner = Manner::surprise; // the I/O manager refuses to remove a device with open handles orderly
    } else if (manner == Manner::orderly && running) {
        const PnpResult answer =
            sendToStack(node.physicalDevice(), IRP_MN_QUERY_REMOVE_DEVICE, "IRP_MN_QUERY_REMOVE_DEVICE");
        if (!NT_SUCCESS(answer.status)) {
            sendToStack(node.physicalDevice(), IRP_MN_CANCEL_REMOVE_DEVICE, "IRP_MN_CANCEL_REMOVE_DEVICE");
            manner = Manner::surprise;
        }
    }
    node.bus->markMissing();
    if (node.busList != nullptr) {
        node.busList->drop(*node.bus);
    }
    if (unplugged) {
        forgetHardware(node, parent);
    }
    const bool bySurprise = running && manner == Manner::surprise;
    const bool removed = removeStack(node, bySurprise ? StackRemoval::surprise : StackRemoval::orderly);
    tree_.unlink(node);
    if (removed) {
        leavePlugAndPlay(node);
    }
    tree_.release(node);
    notifyChanged(node);
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
        if (tree_.claim(*child)) {
            takeAway(*child, manner, false);
        }
    }
}

void PlugAndPlay::forgetHardware(Node &node, Node &parent) {
    const std::lock_guard guard(tree_.mutex);
    std::erase(parent.hardware()->below, node.hardware());
}

/// Takes every driver away from above the physical device object. False when an open handle postpones that.
bool PlugAndPlay::removeStack(Node &node, StackRemoval how) {
    setInterfaces(node, false);
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.started = false;
        node.state.childList = nullptr;
        node.state.busDriver.clear();
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

bool PlugAndPlay::inUse(Node &node) {
    const std::lock_guard guard(tree_.mutex);
    return hasOpenHandles(node.state.stack);
}

// learn.microsoft.com: IRP_MN_SURPRISE_REMOVAL: the removal waits for the last handle.
bool PlugAndPlay::postponeRemoval(Node &node) {
    const std::lock_guard guard(tree_.mutex);
    if (!hasOpenHandles(node.state.stack)) {
        return false;
    }
    if (std::find(postponed_.begin(), postponed_.end(), &node) == postponed_.end()) {
        postponed_.push_back(&node);
    }
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
    std::vector<Node *> ready;
    {
        const std::lock_guard guard(tree_.mutex);
        std::erase_if(postponed_, [&](Node *node) {
            if (hasOpenHandles(node->state.stack)) {
                return false;
            }
            ready.push_back(node);
            return true;
        });
    }
    for (Node *node : ready) {
        finishRemoval(*node);
        if (node->isGone()) {
            leavePlugAndPlay(*node);
        }
    }
}

} // namespace sim::machine
