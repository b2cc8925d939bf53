#pragma once
// PSDLayerTree: the groups of a document's flat layer list as a tree, built once, read-only.
//
// The records are stored bottom first. A group appears as two records: its closing
// `sectionDivider` record comes first (lowest), then the group's children, then the record that
// names the group (`group`, or `artboard` for an artboard). Read from the top down, the naming
// record opens the group and the divider closes it.
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "psdkit/Export.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"

namespace psdkit {

/// One entry of the tree: a layer record and, for a group, its members.
struct PSDKIT_EXPORT PSDLayerTreeNode {
    /// Index of the record in the document's `layers` (file order, bottom first).
    std::size_t index = 0;
    /// True for a group or artboard record; its children follow, top first.
    bool isGroup = false;
    /// The group's members, top first (empty for other layers).
    std::vector<PSDLayerTreeNode> children;
};

/// The tree of a document's layers. It holds indices only: it stays valid as long as the layer
/// list it was built from keeps its order and length, and is never updated by later changes.
struct PSDKIT_EXPORT PSDLayerTree {
    /// Builds the tree of `layers` (a document's `layers`). Never throws except std::bad_alloc;
    /// an unbalanced list (a divider that closes no group, a group never closed) still yields a
    /// tree and sets `unbalanced`.
    explicit PSDLayerTree(const std::vector<std::shared_ptr<PSDLayerWrapper>>& layers);
    /// The same, for an empty list.
    PSDLayerTree() = default;

    /// The outermost layers, top first. Divider records are not nodes, except dividers that close
    /// no group (left in place so that nothing disappears from view).
    std::vector<PSDLayerTreeNode> roots;
    /// Per record (file order): the index of the group record that contains it, if any. A divider
    /// belongs to the group it closes.
    std::vector<std::optional<std::size_t>> parent;
    /// Per record: how many groups contain it.
    std::vector<int> depth;
    /// Per record: false when any group containing it is hidden (the record's own `visible` is
    /// not taken into account).
    std::vector<bool> ancestorsVisible;
    /// True when a divider closes no group or a group is never closed.
    bool unbalanced = false;
};

/// True for the records that open a group when read from the top: `group` and `artboard`.
[[nodiscard]] PSDKIT_EXPORT bool opensGroup(const PSDLayerWrapper& layer) noexcept;

} // namespace psdkit
