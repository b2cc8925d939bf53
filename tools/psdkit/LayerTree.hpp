#pragma once
// The layer tree of a document, rebuilt from its flat list of layer records.
//
// The records are stored bottom first. A group appears as two records: its closing
// `sectionDivider` record comes first (lowest), then the group's children, then the record that
// names the group (`group`, or `artboard` for an artboard). Read from the top down, the naming
// record opens the group and the divider closes it.
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "psdkit/layers/PSDLayerWrapper.hpp"

namespace psdkit::cli {

struct LayerNode {
    /// Index of the record in the document's `layers` (file order).
    std::size_t index = 0;
    /// True for a group or artboard record; its children follow, top first.
    bool isGroup = false;
    std::vector<LayerNode> children;
};

struct LayerTree {
    /// The outermost layers, top first. Divider records are not nodes, except dividers that close
    /// no group (left in place so that nothing disappears from view).
    std::vector<LayerNode> roots;
    /// Per record (file order): the index of the group record that contains it, if any. A divider
    /// belongs to the group it closes.
    std::vector<std::optional<std::size_t>> parent;
    /// Per record: how many groups contain it.
    std::vector<int> depth;
    /// True when a divider closes no group or a group is never closed.
    bool unbalanced = false;
};

/// True for the records that open a group when read from the top: `group` and `artboard`.
[[nodiscard]] bool opensGroup(const PSDLayerWrapper& layer);

[[nodiscard]] LayerTree buildLayerTree(const std::vector<std::shared_ptr<PSDLayerWrapper>>& layers);

} // namespace psdkit::cli
