#pragma once

#include "node.h"

#include <map>
#include <unordered_map>
#include <utility>

namespace sim::machine {

class DeviceTree;

/// A thread's right to change a node. Ends with the object.
class NodeClaim {
  public:
    NodeClaim() = default;
    /// The node is this thread's already (it has just been linked).
    NodeClaim(DeviceTree &tree, Node &node) : tree_(&tree), node_(&node) {}
    NodeClaim(NodeClaim &&other) noexcept : tree_(other.tree_), node_(std::exchange(other.node_, nullptr)) {}
    ~NodeClaim();
    NodeClaim &operator=(NodeClaim &&) = delete;

    explicit operator bool() const { return node_ != nullptr; }

  private:
    DeviceTree *tree_ = nullptr;
    Node *node_ = nullptr;
};

/// All device nodes. Structure and node state are guarded by `mutex`, which is never held while a driver or an observer
/// runs. A thread that changes a node owns it meanwhile (claim), so that a removal waits for an enumeration to end.
class DeviceTree {
  public:
    std::mutex mutex;

    void setRoot(std::shared_ptr<Node> root);
    Node &root() const { return *root_; }

    /// Links a node below its parent and gives its physical device object the device node. This thread owns the node
    /// then. False, and nothing done, when the parent cannot have children (any more) or the device was unplugged.
    bool link(const std::shared_ptr<Node> &node, Node &parent);
    /// Takes the node out of the tree. Its physical device object keeps the device node until forget.
    void unlink(Node &node);
    /// The physical device object loses the device node; the node goes on as a removed one.
    void forget(Node &node);

    Node *byName(std::string_view name);
    /// The node of a physical device object, also while its removal is postponed. Null when Plug and Play knows none.
    Node *byDevice(PDEVICE_OBJECT device);
    /// Whether Plug and Play knows the physical device object or once knew it.
    bool hadDevice(PDEVICE_OBJECT device);
    Node *byHardware(const Hardware &hardware);
    /// Every node below the root, parents before children.
    std::vector<Node *> all();

    /// Waits until nobody works on the node and makes this thread its owner. Empty when the node has left the tree.
    /// Throws std::logic_error when this thread owns it already (a call from inside one of its own callbacks).
    NodeClaim claim(Node &node);
    /// How many threads wait in `claim` for a node that somebody works on.
    std::size_t claimants() const { return claimants_; }

  private:
    friend class NodeClaim;
    void release(Node &node);
    void collect(const Node &node, std::vector<Node *> &result) const;

    std::condition_variable released_;
    std::atomic<std::size_t> claimants_ = 0;
    std::shared_ptr<Node> root_;
    std::unordered_map<PDEVICE_OBJECT, Node *> byDevice_;
    std::vector<std::shared_ptr<Node>> removed_; ///< callers may still hold references to them
};

} // namespace sim::machine
