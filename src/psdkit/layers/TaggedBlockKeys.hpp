#pragma once
// What a tagged block's key says about its framing and its handling, shared by the readers and the
// writers of layer records and document-level blocks.
#include "psdkit/core/PSDFourCharCode.hpp"

namespace psdkit::detail {

/// True for the keys written "8B64" with an 8-byte length in big files.
[[nodiscard]] bool usesLongLengthInBigFiles(const PSDFourCharCode& key);

/// The layer-level keys whose blocks reading keeps raw in `taggedData` (fill and adjustment
/// settings, artboards, effects).
[[nodiscard]] bool isTaggedDataKey(const PSDFourCharCode& key);

/// The layer-level keys the layer writer generates from the model ("luni", "lyid", "lsct", "lsdk",
/// "iOpa", "lclr", "lspf"); a kept block under one of them is never written.
[[nodiscard]] bool isGeneratedLayerBlockKey(const PSDFourCharCode& key);

/// The document-level pattern block keys ("Patt", "Pat2", "Pat3").
[[nodiscard]] bool isPatternKey(const PSDFourCharCode& key);

} // namespace psdkit::detail
