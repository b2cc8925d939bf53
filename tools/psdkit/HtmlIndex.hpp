#pragma once
// index.html of `psdkit export`: a page that shows the exported document so a person can look
// rather than read.
#include <optional>
#include <string>
#include <vector>

#include "LayerFacts.hpp"
#include "LayerTree.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

/// One exported image: its file and the small copy the page shows (the file itself when small).
/// Both empty when the image has no pixels.
struct ExportedImage {
    std::string file;
    std::string thumbnail;
    [[nodiscard]] bool empty() const noexcept { return file.empty(); }
};

/// The files `export` wrote, by what they show.
struct ExportedFiles {
    ExportedImage composite;
    /// The library's rendering of the layers.
    ExportedImage rendered;
    /// Why the composite shows nothing, when it does not (empty otherwise).
    std::string compositeNote;
    /// Per layer record (file order): its content and mask PNG, and the copy of its placed file.
    std::vector<ExportedImage> layerContent;
    std::vector<ExportedImage> layerMask;
    std::vector<std::string> placedFiles;
    /// Per alpha channel.
    std::vector<ExportedImage> alphaChannels;
};

/// The page: the document's facts, the composite, the layer tree (top first, groups nested)
/// with a thumbnail, kind, name, text or placed file, bounds, opacity, blend mode, visibility,
/// clipping and mask per layer, and the alpha channels. Layers inside a hidden group are shown
/// faded like hidden layers. Thumbnails link to the full images; all are referenced by their
/// file names, relative to the page.
[[nodiscard]] std::string htmlIndex(const std::string& title, const PSDWrapper& document,
                                    const LayerTree& tree, const std::vector<LayerFacts>& facts,
                                    const ExportedFiles& files);

/// A readable name of a layer record's blend-mode key ("Multiply" for "mul "), or nothing.
[[nodiscard]] std::optional<std::string> blendModeName(const std::string& key);

} // namespace psdkit::cli
