#pragma once
// The tool's names for the library's layer tree.
#include <memory>
#include <vector>

#include "psdkit/layers/PSDLayerTree.hpp"

namespace psdkit::cli {

using LayerTree = PSDLayerTree;
using LayerNode = PSDLayerTreeNode;
using psdkit::opensGroup;

/// The tree of `layers`.
[[nodiscard]] inline LayerTree buildLayerTree(const std::vector<std::shared_ptr<PSDLayerWrapper>>& layers)
{
    return PSDLayerTree(layers);
}

} // namespace psdkit::cli
