#pragma once
// What the renderer draws, prepared once before the tiles are drawn: the layer tree with every
// layer's images, masks, fills and adjustments resolved. Internal to the renderer; everything here
// is read-only while tiles are drawn on several threads.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "psdkit/core/PSDMacRect.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/platform/image/BlendMode.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit {
class PSDWrapper;
struct PSDRenderOptions;
struct PSDRenderResult;
} // namespace psdkit

namespace psdkit::detail {

/// The body of the layer block stored under `key`, from the kept blocks or from the blocks kept
/// whole by the keep-everything reading; empty when the layer has none.
[[nodiscard]] std::span<const std::uint8_t> findLayerBlock(const PSDLayerWrapper& layer,
                                                           const PSDFourCharCode& key);

/// One sample of a grey or colour buffer as a float: 8- and 16-bit scaled to 0…1, 32-bit as stored.
[[nodiscard]] float sampleToFloat(const image::PixelBufferType& buffer, std::size_t sampleIndex) noexcept;

/// Feathers wider than this many pixels are drawn with this width, so that a hostile value cannot
/// make a blurred mask unbounded.
inline constexpr double maximumFeather = 250.0;

/// The radius of each of the three box blurs that feather by `feather` pixels (a Gaussian of that
/// standard deviation); a feathered mask reaches three radii beyond its edges.
[[nodiscard]] std::int64_t featherBoxRadius(double feather) noexcept;

/// Feathers a `width` × `height` plane of mask values in place; values beyond its edges repeat
/// the edge values.
void featherValues(std::vector<float>& values, std::int64_t width, std::int64_t height, double feather);

/// A pixel mask: an image placed at a rectangle, a value outside it and a density.
struct PixelMask {
    std::shared_ptr<const image::PixelBufferType> image; ///< Grey; may be null (only the default).
    PSDMacRect rect;                                     ///< Where the image lies, in document pixels.
    float defaultValue = 1.0f;                           ///< Value outside `rect`.
    float density = 1.0f;                                ///< 0: no effect, 1: full effect.
    /// The mask's value at document pixel (x, y), density applied.
    [[nodiscard]] float at(std::int64_t x, std::int64_t y) const noexcept;
    /// Multiplies `out[0 … x1 - x0)` by the values `at` gives on row `y` from column `x0`.
    void multiplyRow(std::int64_t y, std::int64_t x0, std::int64_t x1, float* out) const noexcept;
};

/// A coverage image (0…1) rasterised from a vector path, placed at `rect`; zero outside.
struct CoverageMask {
    std::vector<float> coverage; ///< Row after row, `rect` sized.
    PSDMacRect rect;             ///< Where it lies, in document pixels.
    float density = 1.0f;        ///< 0: no effect, 1: full effect.
    bool inverted = false;       ///< Covers outside the path.
    /// The path's bounding box in document pixels (left, top, right, bottom), whatever the region;
    /// all zero for an empty path. Fills aligned with their layer span it.
    std::array<double, 4> pathBounds{};
    /// The mask's value at document pixel (x, y).
    [[nodiscard]] float at(std::int64_t x, std::int64_t y) const noexcept;
    /// Multiplies `out[0 … x1 - x0)` by the values `at` gives on row `y` from column `x0`.
    void multiplyRow(std::int64_t y, std::int64_t x0, std::int64_t x1, float* out) const noexcept;
};

/// "Blend if" ranges on 8-bit values: per channel (grey, red, green, blue) a source and a
/// backdrop range, each black low, black high, white low, white high.
struct BlendRanges {
    std::uint8_t ranges[4][2][4] = {};
    /// The weight (0…1) with which a source colour shows over a backdrop colour (both 0…1).
    [[nodiscard]] float weight(const float* source, const float* backdrop) const noexcept;
    /// The ranges of a record's raw bytes, or nothing when they are absent, short or all default.
    [[nodiscard]] static std::optional<BlendRanges> parse(std::span<const std::uint8_t> bytes);
};

/// A fill layer's colour at each document pixel.
class Fill {
  public:
    virtual ~Fill() = default;
    /// Unpremultiplied colour and alpha at document pixel (x, y) into `rgba`.
    virtual void colorAt(std::int64_t x, std::int64_t y, float* rgba) const noexcept = 0;
};

/// An adjustment layer's change to a colour.
class Adjustment {
  public:
    virtual ~Adjustment() = default;
    /// Changes one unpremultiplied colour in place.
    virtual void apply(float* rgb) const noexcept = 0;
};

/// One node of the tree.
struct RenderNode {
    enum class Kind { pixels, fill, adjustment, group };
    Kind kind = Kind::pixels;
    std::size_t index = 0; ///< Index in the document's layers.
    image::BlendMode mode = image::BlendMode::normal;
    float opacity = 1.0f;                                  ///< Layer (or group) opacity.
    float fillOpacity = 1.0f;                              ///< Opacity of the pixels only.
    std::shared_ptr<const image::PixelBufferType> content; ///< pixels: the layer's image.
    PSDMacRect contentRect;                                ///< pixels: where it lies.
    std::optional<PixelMask> mask;
    std::optional<PixelMask> realMask; ///< The second user mask, where the first is the path's.
    std::shared_ptr<const CoverageMask> vectorMask;
    std::optional<BlendRanges> ranges;
    std::shared_ptr<const Fill> fill;
    std::shared_ptr<const Adjustment> adjustment;
    std::vector<RenderNode> children; ///< group: its members, bottom first.
    std::vector<RenderNode> clipped;  ///< Layers clipped to this one, bottom first.
    /// Outside this rectangle (document pixels) the node and the layers clipped to it change
    /// nothing; absent when they may reach everywhere (fills, adjustments).
    std::optional<PSDMacRect> reach;

    [[nodiscard]] bool hasMask() const noexcept { return mask || realMask || vectorMask; }

    /// The product of the masks at document pixel (x, y).
    [[nodiscard]] float maskAt(std::int64_t x, std::int64_t y) const noexcept
    {
        float m = mask ? mask->at(x, y) : 1.0f;
        if (realMask) {
            m *= realMask->at(x, y);
        }
        if (vectorMask) {
            m *= vectorMask->at(x, y);
        }
        return m;
    }
    /// `maskAt` for row `y`, columns `x0` to `x1` (exclusive), into `out`.
    void maskRow(std::int64_t y, std::int64_t x0, std::int64_t x1, float* out) const noexcept
    {
        std::fill(out, out + (x1 - x0), 1.0f);
        if (mask) {
            mask->multiplyRow(y, x0, x1, out);
        }
        if (realMask) {
            realMask->multiplyRow(y, x0, x1, out);
        }
        if (vectorMask) {
            vectorMask->multiplyRow(y, x0, x1, out);
        }
    }
};

/// The nodes to draw, bottom first, and what the result reports.
struct RenderPlan {
    std::vector<RenderNode> roots;
    std::int64_t bitDepth = 8;
};

/// Groups deeper than this are drawn as if their contents were not there.
inline constexpr int maximumGroupDepth = 64;

/// Builds the plan for drawing `region` (document pixels) of `document`, fetching every image it
/// needs; records what will not be drawn in `result`. Throws what the layer image accessors throw.
[[nodiscard]] RenderPlan buildRenderPlan(const PSDWrapper& document, const PSDRenderOptions& options,
                                         const PSDMacRect& region, PSDRenderResult& result);

} // namespace psdkit::detail
