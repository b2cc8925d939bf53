#pragma once
// The JSON form of a document that `psdkit info --json` prints. Field names follow the library's
// own (`imageWidth`, `layers[].contentsRect`, …); README.md documents the schema.
#include <nlohmann/json.hpp>

#include "LayerTree.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

using Json = nlohmann::ordered_json;

/// [top, left, bottom, right].
[[nodiscard]] Json rectJson(const PSDMacRect& rect);

/// One layer record: identity, kind, bounds, blending, visibility, mask and kept blocks.
[[nodiscard]] Json layerJson(const PSDWrapper& document, const LayerTree& tree, std::size_t index);

/// The whole document: header fields, colour profile, resolution, layers (one entry per record,
/// file order), alpha channels, kept image resources and metadata.
[[nodiscard]] Json documentJson(const PSDWrapper& document, const LayerTree& tree);

/// `json` as text, two-space indented; invalid UTF-8 in names is replaced, never fatal.
[[nodiscard]] std::string dumpJson(const Json& json);

/// "PSD" or "PSB".
[[nodiscard]] const char* formatName(const PSDWrapper& document) noexcept;

} // namespace psdkit::cli
