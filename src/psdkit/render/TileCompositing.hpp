#pragma once
// Drawing the plan's nodes into one tile of premultiplied RGBA floats. Internal to the renderer.
#include <cstdint>
#include <vector>

#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// A rectangle of the canvas as premultiplied red, green, blue, alpha floats, row after row.
struct Tile {
    std::int64_t left = 0;
    std::int64_t top = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::vector<float> samples;

    Tile(std::int64_t left_, std::int64_t top_, std::int64_t width_, std::int64_t height_)
        : left(left_), top(top_), width(width_), height(height_),
          samples(static_cast<std::size_t>(width_ * height_ * 4), 0.0f)
    {
    }
    [[nodiscard]] float* at(std::int64_t x, std::int64_t y) noexcept
    {
        return samples.data() + static_cast<std::size_t>(((y - top) * width + (x - left)) * 4);
    }
};

/// Draws `nodes` (bottom first) onto `tile`.
void drawNodes(const std::vector<RenderNode>& nodes, Tile& tile);

/// `compositePixel` for every mode and blending ranges.
void compositePixelWithMode(image::BlendMode mode, const float* source, float alpha, float* pixel,
                            std::int64_t x, std::int64_t y, const BlendRanges* ranges) noexcept;

/// Composites one source colour (unpremultiplied `source`, alpha `alpha`) onto one premultiplied
/// pixel with `mode`. `x`, `y` place the pixel for dissolve's pattern. Inline for the common case,
/// normal mode without blending ranges, which is plain source-over.
inline void compositePixel(image::BlendMode mode, const float* source, float alpha, float* pixel,
                           std::int64_t x, std::int64_t y, const BlendRanges* ranges) noexcept
{
    if (mode == image::BlendMode::normal && !ranges) {
        for (int c = 0; c < 3; ++c) {
            pixel[c] = alpha * source[c] + (1.0f - alpha) * pixel[c];
        }
        pixel[3] = alpha + pixel[3] * (1.0f - alpha);
        return;
    }
    compositePixelWithMode(mode, source, alpha, pixel, x, y, ranges);
}

} // namespace psdkit::detail
