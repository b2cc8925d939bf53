#pragma once
// The JSON form of a document that `psdkit info --json` prints. Field names follow the library's
// own (`imageWidth`, `layers[].contentsRect`, …); README.md documents the schema.
#include <nlohmann/json.hpp>

#include "LayerFacts.hpp"
#include "LayerTree.hpp"
#include "psdkit/document/PSDFileHeader.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

using Json = nlohmann::ordered_json;

/// [top, left, bottom, right].
[[nodiscard]] Json rectJson(const PSDMacRect& rect);

/// One layer record: identity, kind, bounds, blending, visibility, mask and kept blocks; every
/// record but a group's closing divider also gets `kind`, `text`, `smartObject` and `clipping`.
[[nodiscard]] Json layerJson(const PSDWrapper& document, const LayerTree& tree, const LayerFacts& facts,
                             std::size_t index);

/// The header fields of a file the library refused: format, size, depth, colour mode, channels.
[[nodiscard]] Json headerJson(const PSDFileHeader& header);

/// The whole document: header fields, colour profile, resolution, layers (one entry per record,
/// file order), alpha channels, kept image resources and metadata.
[[nodiscard]] Json documentJson(const PSDWrapper& document, const LayerTree& tree);

/// `json` as text, two-space indented; invalid UTF-8 in names is replaced, never fatal.
[[nodiscard]] std::string dumpJson(const Json& json);

/// "PSD" or "PSB".
[[nodiscard]] const char* formatName(const PSDWrapper& document) noexcept;

} // namespace psdkit::cli
