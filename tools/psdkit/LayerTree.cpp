#include "LayerTree.hpp"

namespace psdkit::cli {

bool opensGroup(const PSDLayerWrapper& layer)
{
    const auto kind = layer.type().kind();
    return kind == PSDLayerType::Kind::group || kind == PSDLayerType::Kind::artboard;
}

LayerTree buildLayerTree(const std::vector<std::shared_ptr<PSDLayerWrapper>>& layers)
{
    LayerTree tree;
    tree.parent.assign(layers.size(), std::nullopt);
    tree.depth.assign(layers.size(), 0);

    // Open groups, outermost first, each with the index of its record; children are gathered in
    // the node until its divider is reached.
    std::vector<LayerNode> open;
    const auto place = [&](LayerNode node) {
        (open.empty() ? tree.roots : open.back().children).push_back(std::move(node));
    };
    for (std::size_t i = layers.size(); i-- > 0;) {
        const PSDLayerWrapper& layer = *layers[i];
        if (!open.empty()) {
            tree.parent[i] = open.back().index;
        }
        tree.depth[i] = static_cast<int>(open.size());
        if (layer.type().kind() == PSDLayerType::Kind::sectionDivider) {
            if (open.empty()) {
                tree.unbalanced = true;
                place(LayerNode{i, false, {}});
                continue;
            }
            LayerNode group = std::move(open.back());
            open.pop_back();
            place(std::move(group));
            continue;
        }
        if (opensGroup(layer)) {
            open.push_back(LayerNode{i, true, {}});
            continue;
        }
        place(LayerNode{i, false, {}});
    }
    // Groups that were never closed end at the bottom of the document.
    if (!open.empty()) {
        tree.unbalanced = true;
    }
    while (!open.empty()) {
        LayerNode group = std::move(open.back());
        open.pop_back();
        place(std::move(group));
    }
    return tree;
}

} // namespace psdkit::cli
