#pragma once

#include "node.h"

#include <map>
#include <unordered_map>

namespace sim::machine {

/// All device nodes. Structure and node state are guarded by `mutex`, which is never held while a driver or an observer
/// runs. A thread that changes a node owns it meanwhile (claim), so that a removal waits for an enumeration to end.
class DeviceTree {
  public:
    std::mutex mutex;

    void setRoot(std::shared_ptr<Node> root);
    Node &root() const { return *root_; }

    /// Links a node below its parent and gives its physical device object the device node. This thread owns the node
    /// then. False, and nothing done, when the parent cannot have children (any more).
    bool link(const std::shared_ptr<Node> &node, Node &parent);
    /// Takes the node out of the tree. Its physical device object keeps the device node until forget.
    void unlink(Node &node);
    /// The physical device object loses the device node; the node goes on as a removed one.
    void forget(Node &node);

    Node *byName(std::string_view name);
    /// The node of a physical device object, also while its removal is postponed. Null when Plug and Play knows none.
    Node *byDevice(PDEVICE_OBJECT device);
    /// Every node below the root, parents before children.
    std::vector<Node *> all();

    /// Waits until nobody works on the node and makes this thread its owner. False when it has left the tree.
    /// Throws std::logic_error when this thread owns it already (a call from inside one of its own callbacks).
    bool claim(Node &node);
    void release(Node &node);

  private:
    void collect(const Node &node, std::vector<Node *> &result) const;

    std::condition_variable released_;
    std::shared_ptr<Node> root_;
    std::unordered_map<PDEVICE_OBJECT, Node *> byDevice_;
    std::vector<std::shared_ptr<Node>> removed_; ///< callers may still hold references to them
};

} // namespace sim::machine
