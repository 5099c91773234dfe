#include "avl_tree.h"

#include <utility>

namespace sim::avl {

namespace {

Links *leftmost(Links *node) {
    while (node->LeftChild != nullptr) {
        node = node->LeftChild;
    }
    return node;
}

Links *rightmost(Links *node) {
    while (node->RightChild != nullptr) {
        node = node->RightChild;
    }
    return node;
}

/// Puts `child` (may be null) where `node` hangs below its parent.
void replaceInParent(Links *node, Links *child) {
    Links *parent = node->Parent;
    (parent->LeftChild == node ? parent->LeftChild : parent->RightChild) = child;
    if (child != nullptr) {
        child->Parent = parent;
    }
}

/// Lifts `child` above its parent; the order of keys stays.
void rotateUp(Links *child) {
    Links *parent = child->Parent;
    replaceInParent(parent, child);
    Links *&down = parent->LeftChild == child ? parent->LeftChild : parent->RightChild;
    Links *&inner = &down == &parent->LeftChild ? child->RightChild : child->LeftChild;
    down = inner;
    if (down != nullptr) {
        down->Parent = parent;
    }
    inner = parent;
    parent->Parent = child;
}

/// Brings a node whose sides differ by two into balance and returns the subtree's new root.
Links *rebalance(Links *node) {
    const CHAR heavy = node->Balance > 0 ? 1 : -1;
    Links *child = heavy > 0 ? node->RightChild : node->LeftChild;
    if (child->Balance == -heavy) {
        Links *grandchild = heavy > 0 ? child->LeftChild : child->RightChild;
        rotateUp(grandchild);
        rotateUp(grandchild);
        node->Balance = static_cast<CHAR>(grandchild->Balance == heavy ? -heavy : 0);
        child->Balance = static_cast<CHAR>(grandchild->Balance == -heavy ? heavy : 0);
        grandchild->Balance = 0;
        return grandchild;
    }
    rotateUp(child);
    const bool sameHeight = child->Balance == 0;
    node->Balance = static_cast<CHAR>(sameHeight ? heavy : 0);
    child->Balance = static_cast<CHAR>(sameHeight ? -heavy : 0);
    return child;
}

} // namespace

void insert(RTL_AVL_TABLE &table, Links *node, Links *parent, bool asLeft) {
    Links *const top = &table.BalancedRoot;
    if (parent == nullptr) {
        parent = top;
        asLeft = false;
    }
    node->Parent = parent;
    (asLeft ? parent->LeftChild : parent->RightChild) = node;
    for (; parent != top; node = parent, parent = parent->Parent) {
        parent->Balance = static_cast<CHAR>(parent->Balance + (parent->LeftChild == node ? -1 : 1));
        if (parent->Balance == 0) {
            return;
        }
        if (parent->Balance == 2 || parent->Balance == -2) {
            rebalance(parent);
            return;
        }
    }
    ++table.DepthOfTree;
}

void remove(RTL_AVL_TABLE &table, Links *node) {
    Links *const top = &table.BalancedRoot;
    Links *parent = node->Parent;
    bool fromLeft = parent->LeftChild == node;
    if (node->LeftChild != nullptr && node->RightChild != nullptr) {
        // The next larger node takes this one's place; what becomes shorter is where it came from.
        Links *next = leftmost(node->RightChild);
        parent = next->Parent == node ? next : next->Parent;
        fromLeft = next->Parent != node;
        if (next->Parent != node) {
            replaceInParent(next, next->RightChild);
            next->RightChild = node->RightChild;
            next->RightChild->Parent = next;
        }
        next->LeftChild = node->LeftChild;
        next->LeftChild->Parent = next;
        next->Balance = node->Balance;
        replaceInParent(node, next);
    } else {
        replaceInParent(node, node->LeftChild != nullptr ? node->LeftChild : node->RightChild);
    }
    while (parent != top) {
        parent->Balance = static_cast<CHAR>(parent->Balance + (fromLeft ? 1 : -1));
        if (parent->Balance == 2 || parent->Balance == -2) {
            parent = rebalance(parent);
        }
        if (parent->Balance != 0) {
            return;
        }
        fromLeft = parent->Parent->LeftChild == parent;
        parent = parent->Parent;
    }
    --table.DepthOfTree;
}

Links *first(RTL_AVL_TABLE &table) {
    Links *root = table.BalancedRoot.RightChild;
    return root == nullptr ? nullptr : leftmost(root);
}

Links *successor(const RTL_AVL_TABLE &table, Links *node) {
    if (node->RightChild != nullptr) {
        return leftmost(node->RightChild);
    }
    while (node->Parent != &table.BalancedRoot && node->Parent->RightChild == node) {
        node = node->Parent;
    }
    return node->Parent == &table.BalancedRoot ? nullptr : node->Parent;
}

Links *predecessor(const RTL_AVL_TABLE &table, Links *node) {
    if (node->LeftChild != nullptr) {
        return rightmost(node->LeftChild);
    }
    while (node->Parent != &table.BalancedRoot && node->Parent->LeftChild == node) {
        node = node->Parent;
    }
    return node->Parent == &table.BalancedRoot ? nullptr : node->Parent;
}

} // namespace sim::avl
