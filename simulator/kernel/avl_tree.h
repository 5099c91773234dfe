#pragma once

#include <ntifs.h>

/// The balanced tree inside an RTL_AVL_TABLE. The root hangs to the right of the table's own BalancedRoot.
namespace sim::avl {

using Links = RTL_BALANCED_LINKS;

/// Links a zeroed node below `parent` (null: into the empty tree) and restores the balance.
void insert(RTL_AVL_TABLE &table, Links *node, Links *parent, bool asLeft);
void remove(RTL_AVL_TABLE &table, Links *node);

Links *first(RTL_AVL_TABLE &table);                        ///< smallest, null in an empty tree
Links *successor(const RTL_AVL_TABLE &table, Links *node); ///< null at the end
Links *predecessor(const RTL_AVL_TABLE &table, Links *node);

} // namespace sim::avl
