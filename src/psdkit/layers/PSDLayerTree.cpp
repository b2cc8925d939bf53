#include "psdkit/layers/PSDLayerTree.hpp"

namespace psdkit {

bool opensGroup(const PSDLayerWrapper& layer) noexcept
{
    const auto kind = layer.type().kind();
    return kind == PSDLayerType::Kind::group || kind == PSDLayerType::Kind::artboard;
}

PSDLayerTree::PSDLayerTree(const std::vector<std::shared_ptr<PSDLayerWrapper>>& layers)
{
    parent.assign(layers.size(), std::nullopt);
    depth.assign(layers.size(), 0);
    ancestorsVisible.assign(layers.size(), true);

    // Open groups, outermost first; children are gathered in the node until its divider is
    // reached. `shown` says per open group whether it and every group around it are visible.
    std::vector<PSDLayerTreeNode> open;
    std::vector<bool> shown;
    const auto place = [&](PSDLayerTreeNode node) {
        (open.empty() ? roots : open.back().children).push_back(std::move(node));
    };
    for (std::size_t i = layers.size(); i-- > 0;) {
        const PSDLayerWrapper& layer = *layers[i];
        if (!open.empty()) {
            parent[i] = open.back().index;
            ancestorsVisible[i] = shown.back();
        }
        depth[i] = static_cast<int>(open.size());
        if (layer.type().kind() == PSDLayerType::Kind::sectionDivider) {
            if (open.empty()) {
                unbalanced = true;
                place(PSDLayerTreeNode{i, false, {}});
                continue;
            }
            PSDLayerTreeNode group = std::move(open.back());
            open.pop_back();
            shown.pop_back();
            place(std::move(group));
            continue;
        }
        if (opensGroup(layer)) {
            open.push_back(PSDLayerTreeNode{i, true, {}});
            shown.push_back(ancestorsVisible[i] && layer.visible);
            continue;
        }
        place(PSDLayerTreeNode{i, false, {}});
    }
    // Groups that were never closed end at the bottom of the document.
    if (!open.empty()) {
        unbalanced = true;
    }
    while (!open.empty()) {
        PSDLayerTreeNode group = std::move(open.back());
        open.pop_back();
        place(std::move(group));
    }
}

} // namespace psdkit
