#pragma once
// What a layer holds, as a user of an editing application knows it: a read-only view over the
// layer's record and its tagged blocks. Nothing here changes a layer.
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "psdkit/Export.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"

namespace psdkit {

/// A layer's kind as a user knows it. It refines `PSDLayerWrapper::type()` (which follows the
/// record's own markers) with the blocks the layer carries; see `layerContentKind`.
enum class PSDLayerContentKind {
    pixel,       ///< a layer of pixels
    text,        ///< a text layer ("TySh")
    smartObject, ///< a placed, embedded or linked file ("SoLd", "SoLE", "PlLd")
    shape,       ///< a fill layer drawn through a vector shape
    fill,        ///< a solid colour, gradient or pattern fill without a shape
    adjustment,  ///< an adjustment layer
    group,       ///< the record that opens a group (also a scene group)
    artboard,    ///< the record that opens an artboard
    groupEnd,    ///< the record that closes a group; not a layer a user sees
};

/// "pixel", "text", "smartObject", "shape", "fill", "adjustment", "group", "artboard" or
/// "groupEnd".
[[nodiscard]] PSDKIT_EXPORT const char* name(PSDLayerContentKind kind) noexcept;

/// The body of the layer's tagged block `key`: searched in `taggedData` first, then in
/// `uninterpretedBlocks` (filled only when the document was read with
/// `PSDReadOptions::keepUnknownBlocks`). Nothing when the layer has no such block. The bytes
/// belong to the layer and stay valid until the layer's blocks are changed.
[[nodiscard]] PSDKIT_EXPORT std::optional<std::span<const std::uint8_t>>
findLayerBlock(const PSDLayerWrapper& layer, const PSDFourCharCode& key);

/// The layer's kind, decided in this order: a group's closing record is `groupEnd`; a group or
/// scene group `group`; an artboard (type or "artb"/"artd"/"abdd" block) `artboard`; a "TySh"
/// block `text`; a "SoLd", "SoLE" or "PlLd" block `smartObject`; vector stroke or origination
/// data ("vscg", "vstk", "vogk"), or a fill kind with a vector mask ("vmsk", "vsms"), `shape`;
/// other fill kinds (solid colour, gradient, pattern) `fill`; other adjustment kinds
/// `adjustment`; everything else `pixel`. Blocks kept only with `keepUnknownBlocks` (text, smart
/// objects, vector data) are seen only when the document was read with it. Never throws.
[[nodiscard]] PSDKIT_EXPORT PSDLayerContentKind layerContentKind(const PSDLayerWrapper& layer);

/// The string of a text layer (the "Txt " item of the descriptor in its "TySh" block), in UTF-8
/// with the application's paragraph breaks (carriage returns) turned into line feeds and a
/// trailing NUL removed. Nothing when the layer has no "TySh" block or the block cannot be read.
/// Reading the descriptor writes its trace lines to the diagnostics sink, as every descriptor
/// read does. Never throws except std::bad_alloc.
[[nodiscard]] PSDKIT_EXPORT std::optional<std::string> layerText(const PSDLayerWrapper& layer);

/// The identifier that ties a smart object layer to its file among the document's linked files
/// ("Idnt" in a "SoLd"/"SoLE" descriptor, else the unique ID of a "PlLd" block). Nothing when the
/// layer is no smart object or the block cannot be read. Never throws except std::bad_alloc.
[[nodiscard]] PSDKIT_EXPORT std::optional<std::string> smartObjectIdentifier(const PSDLayerWrapper& layer);

} // namespace psdkit
