#pragma once
// PSDRenderer: the picture a document's layers make, rendered into one pixel buffer.
//
// What is drawn: visible pixel layers, groups (pass-through or isolated, with their opacity,
// blend mode and masks), clipping groups, every blend mode, opacity and fill opacity, layer masks
// (default colour, disabled flag, position, density, feather; the real user mask where the record
// has both), vector masks (from the blocks `PSDReadOptions::keepUnknownBlocks` keeps; without them
// shape and fill layers draw their stored pixels), blending ranges ("blend if", on 8-bit samples),
// solid colour, gradient and pattern fill layers (a pattern from `PSDWrapper::patternData`, the
// file's last pattern block, or from the earlier ones the keep-everything reading keeps) and the adjustment
// layers (levels, curves, brightness/contrast, hue/saturation, invert, threshold, posterize, exposure,
// vibrance, colour balance, black & white, channel mixer, photo filter, gradient map, selective colour). What
// is not drawn: layer effects (the layers that carry them are listed in the result), text that has no stored
// pixels, smart-object contents beyond their stored pixels, pattern fills whose pattern is in none of those
// blocks (their stored pixels are drawn where there are some), and the adjustment kinds
// `PSDRenderResult::layersNotDrawn` reports (colour lookup).
//
// Samples are blended as floats. 8- and 16-bit documents blend gamma-encoded values in 0…1; 32-bit
// documents blend their linear-light values unclamped, as stored.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "psdkit/Export.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit {

/// What to render and how.
struct PSDKIT_EXPORT PSDRenderOptions {
    /// The part of the canvas to render, in document pixels; nothing renders the whole canvas.
    /// It is cut to the canvas; a region that misses the canvas is an error (`invalidRegion`).
    std::optional<image::IntegralRect> region;
    /// Output pixels per document pixel, above 0 and at most 16 (thumbnails use values below 1).
    /// Each output pixel is the average of the document pixels it covers; above 1 it repeats the
    /// nearest document pixel.
    double scale = 1.0;
    /// Indices into the document's `layers` of the records to draw; nothing draws every visible
    /// layer. A group listed here draws its visible members; a layer is drawn only when it is
    /// listed or inside a listed group, and still only when it and its groups are visible.
    std::optional<std::vector<std::size_t>> layers;
    /// Threads to render on; 0 uses every core. The pixels do not depend on it.
    unsigned threadCount = 0;
    /// Blend the layers onto an opaque white canvas instead of a transparent one. Applications
    /// store the composite of a document without merged transparency this way: layers with a
    /// blend mode then blend with the white, not with nothing.
    bool whiteBackground = false;
};

/// A rendered image and what could not be drawn.
struct PSDKIT_EXPORT PSDRenderResult {
    /// The picture: ARGB8, RGBA16 or RGBA32 by the document's depth, of the region's size × scale
    /// (rounded up, at least 1 × 1). Transparent where no layer covers the canvas.
    std::shared_ptr<image::PixelBufferType> image;
    /// Indices (into `layers`) of drawn layers that carry layer effects, which were left out.
    std::vector<std::size_t> layersWithEffectsNotDrawn;
    /// Indices of visible adjustment or fill layers whose kind or settings could not be used;
    /// they were skipped.
    std::vector<std::size_t> layersNotDrawn;
};

/// Why a render was refused.
enum class PSDRenderError {
    invalidOptions, ///< scale not in (0, 16], or a layer index out of range
    invalidRegion,  ///< the region is empty or lies outside the canvas
    imageTooLarge,  ///< the output or the canvas has more pixels than `maximumRenderPixels`
};

/// Thrown by `renderDocument` for refused requests.
class PSDKIT_EXPORT PSDRenderException : public std::runtime_error {
  public:
    /// An exception for `error` with a readable text.
    explicit PSDRenderException(PSDRenderError error);
    /// The reason.
    [[nodiscard]] PSDRenderError error() const noexcept { return error_; }

  private:
    PSDRenderError error_;
};

/// Renders at most this many output pixels (and a canvas of at most this many pixels), so that a
/// hostile header cannot make us allocate without bound: 2^28 (16 bytes a pixel: 4 GiB).
inline constexpr std::int64_t maximumRenderPixels = std::int64_t{1} << 28;

/// Renders `document`'s layers as `options` say. The document is only read; layer images are
/// fetched through their accessors (which may decode them) on the calling thread before the
/// work is spread over threads. Throws PSDRenderException for refused options and sizes, and
/// passes on unchanged what decoding a layer image throws (PSDException, the image core's
/// ImageException). A document without layers renders transparent.
[[nodiscard]] PSDKIT_EXPORT PSDRenderResult renderDocument(const PSDWrapper& document,
                                                           const PSDRenderOptions& options = {});

} // namespace psdkit
