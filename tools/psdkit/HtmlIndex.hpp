#pragma once
// index.html of `psdkit export`: a page that shows the exported document so a person can look
// rather than read.
#include <optional>
#include <string>
#include <vector>

#include "LayerTree.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

/// The files `export` wrote, by what they show; empty names for images that were not written.
struct ExportedFiles {
    std::string composite;
    /// The library's rendering of the layers.
    std::string rendered;
    /// Per layer record (file order): its content and mask PNG.
    std::vector<std::string> layerContent;
    std::vector<std::string> layerMask;
    /// Per alpha channel.
    std::vector<std::string> alphaChannels;
};

/// The page: the document's facts, the composite, the layer tree (top first, groups nested)
/// with a thumbnail, kind, name, bounds, opacity, blend mode, visibility and mask per layer, and
/// the alpha channels. Images are referenced by their file names, relative to the page.
[[nodiscard]] std::string htmlIndex(const std::string& title, const PSDWrapper& document,
                                    const LayerTree& tree, const ExportedFiles& files);

/// A readable name of a layer record's blend-mode key ("Multiply" for "mul "), or nothing.
[[nodiscard]] std::optional<std::string> blendModeName(const std::string& key);

} // namespace psdkit::cli
