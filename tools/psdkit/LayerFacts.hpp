#pragma once
// What each layer of a document holds as a user knows it (kind, text, placed file), gathered once
// per document for info, its JSON and the export page.
#include <optional>
#include <string>
#include <vector>

#include "psdkit/document/PSDLinkedFiles.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"

namespace psdkit::cli {

struct LayerFacts {
    PSDLayerContentKind kind = PSDLayerContentKind::pixel;
    /// The string of a text layer.
    std::optional<std::string> text;
    /// The placed file of a smart object layer, when the document holds its entry.
    std::optional<PSDLinkedFile> placedFile;
};

/// One entry per record of `document.layers`, in the same order.
[[nodiscard]] std::vector<LayerFacts> layerFacts(const PSDWrapper& document);

/// The kind as the text output names it: "pixel", "text", "smart object", "shape solidColor",
/// "fill gradientFill", "adjustment levels", "group", "scene group", "artboard", "divider".
[[nodiscard]] std::string kindText(const PSDLayerWrapper& layer, PSDLayerContentKind kind);

/// True for the blocks a user cares to see listed and that the layer's kind does not already
/// name: effects, vector masks and strokes, blending restrictions. Others are listed on request.
[[nodiscard]] bool blockMattersToUser(const PSDFourCharCode& key);

} // namespace psdkit::cli
