#include "LayerFacts.hpp"

#include <array>

namespace psdkit::cli {

std::vector<LayerFacts> layerFacts(const PSDWrapper& document)
{
    std::vector<LayerFacts> facts(document.layers.size());
    std::optional<std::vector<PSDLinkedFile>> files; // read on the first smart object
    for (std::size_t i = 0; i < document.layers.size(); ++i) {
        const PSDLayerWrapper& layer = *document.layers[i];
        facts[i].kind = layerContentKind(layer);
        if (facts[i].kind == PSDLayerContentKind::text) {
            facts[i].text = layerText(layer);
        } else if (facts[i].kind == PSDLayerContentKind::smartObject) {
            if (!files) {
                files = linkedFiles(document);
            }
            if (const auto identifier = smartObjectIdentifier(layer)) {
                for (const PSDLinkedFile& file : *files) {
                    if (file.identifier == *identifier) {
                        facts[i].placedFile = file;
                        break;
                    }
                }
            }
        }
    }
    return facts;
}

std::string kindText(const PSDLayerWrapper& layer, PSDLayerContentKind kind)
{
    switch (kind) {
    case PSDLayerContentKind::group:
        return layer.subtype.kind() == PSDLayerType::Kind::sceneGroup ||
                       layer.type().kind() == PSDLayerType::Kind::sceneGroup
                   ? "scene group"
                   : "group";
    case PSDLayerContentKind::groupEnd:
        return "divider";
    case PSDLayerContentKind::smartObject:
        return "smart object";
    case PSDLayerContentKind::shape:
    case PSDLayerContentKind::fill:
    case PSDLayerContentKind::adjustment:
        if (layer.type().kind() == PSDLayerType::Kind::adjustmentLayer) {
            return std::string(name(kind)) + " " + name(layer.type().adjustmentType());
        }
        return name(kind);
    default:
        return name(kind);
    }
}

bool blockMattersToUser(const PSDFourCharCode& key)
{
    // Text, placed files, artboards, fill and adjustment settings are named by the kind already.
    static constexpr std::array<const char*, 9> kShown = {"lrFX", "lfx2", "lmfx", "vmsk", "vsms",
                                                          "vscg", "vstk", "vogk", "brst"};
    for (const char* shown : kShown) {
        if (key == PSDFourCharCode(std::string(shown))) {
            return true;
        }
    }
    return false;
}

} // namespace psdkit::cli
