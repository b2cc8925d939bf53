#include "psdkit/render/TileCompositing.hpp"

#include <algorithm>
#include <cstring>

#include "psdkit/render/BlendFunctions.hpp"

namespace psdkit::detail {

using image::BlendMode;

namespace {

/// A fixed pseudo-random value in [0, 1) for a document pixel, so that dissolve is the same on
/// every run and for every tile split.
float dissolveThreshold(std::int64_t x, std::int64_t y) noexcept
{
    auto h = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ull ^
             static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4Full;
    h ^= h >> 31;
    h *= 0xBF58476D1CE4E5B9ull;
    h ^= h >> 29;
    return static_cast<float>(h >> 40) / static_cast<float>(1ull << 24);
}

void unpremultiply(const float* pixel, float* rgb) noexcept
{
    const float a = pixel[3];
    for (int c = 0; c < 3; ++c) {
        rgb[c] = a > 0.0f ? pixel[c] / a : 0.0f;
    }
}

/// Per tile pixel, how much of the layers clipped to a base may show (1 outside clipping).
using Shape = std::vector<float>;

void drawNode(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut);

/// Blends the source colour `rgba` into the tile's pixel (x, y) with `coverage` (shape × opacity)
/// times the clip base's shape there, and records `shape` for the layers clipped to this one.
void blendPixel(const RenderNode& node, Tile& tile, std::int64_t x, std::int64_t y, const float* rgba,
                float coverage, float shape, const Shape* clip, Shape* shapeOut)
{
    const std::size_t i = static_cast<std::size_t>((y - tile.top) * tile.width + (x - tile.left));
    if (shapeOut) {
        (*shapeOut)[i] = shape;
    }
    const float alpha = coverage * (clip ? (*clip)[i] : 1.0f);
    if (alpha > 0.0f) {
        compositePixel(node.mode, rgba, alpha, tile.at(x, y), x, y, node.ranges ? &*node.ranges : nullptr);
    }
}

void drawPixels(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const image::PixelBufferType& content = *node.content;
    const auto size = content.size();
    const std::int64_t left = std::max(tile.left, node.contentRect.left);
    const std::int64_t top = std::max(tile.top, node.contentRect.top);
    const std::int64_t right =
        std::min({tile.left + tile.width, node.contentRect.right, node.contentRect.left + size.width});
    const std::int64_t bottom =
        std::min({tile.top + tile.height, node.contentRect.bottom, node.contentRect.top + size.height});
    const float weight = node.opacity * node.fillOpacity;
    const std::uint8_t* bytes8 =
        content.format() == image::PixelFormat::argb8 ? content.bytes().data() : nullptr;
    const bool masked = node.mask || node.realMask || node.vectorMask;
    for (std::int64_t y = top; y < bottom; ++y) {
        for (std::int64_t x = left; x < right; ++x) {
            const auto base = static_cast<std::size_t>(
                ((y - node.contentRect.top) * size.width + (x - node.contentRect.left)) * 4);
            float rgba[4];
            if (bytes8) {
                rgba[3] = static_cast<float>(bytes8[base]) * (1.0f / 255.0f);
                rgba[0] = static_cast<float>(bytes8[base + 1]) * (1.0f / 255.0f);
                rgba[1] = static_cast<float>(bytes8[base + 2]) * (1.0f / 255.0f);
                rgba[2] = static_cast<float>(bytes8[base + 3]) * (1.0f / 255.0f);
            } else {
                for (std::size_t c = 0; c < 4; ++c) {
                    rgba[c] = sampleToFloat(content, base + c);
                }
                rgba[3] = std::clamp(rgba[3], 0.0f, 1.0f);
            }
            const float shape = masked ? rgba[3] * node.maskAt(x, y) : rgba[3];
            blendPixel(node, tile, x, y, rgba, shape * weight, shape, clip, shapeOut);
        }
    }
}

void drawFill(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const float weight = node.opacity * node.fillOpacity;
    for (std::int64_t y = tile.top; y < tile.top + tile.height; ++y) {
        for (std::int64_t x = tile.left; x < tile.left + tile.width; ++x) {
            float rgba[4];
            node.fill->colorAt(x, y, rgba);
            const float shape = rgba[3] * node.maskAt(x, y);
            blendPixel(node, tile, x, y, rgba, shape * weight, shape, clip, shapeOut);
        }
    }
}

void drawAdjustment(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const float weight = node.opacity * node.fillOpacity;
    for (std::int64_t y = tile.top; y < tile.top + tile.height; ++y) {
        for (std::int64_t x = tile.left; x < tile.left + tile.width; ++x) {
            const float shape = node.maskAt(x, y);
            const std::size_t i = static_cast<std::size_t>((y - tile.top) * tile.width + (x - tile.left));
            if (shapeOut) {
                (*shapeOut)[i] = shape;
            }
            float* pixel = tile.at(x, y);
            const float amount = shape * weight * (clip ? (*clip)[i] : 1.0f);
            if (amount <= 0.0f || pixel[3] <= 0.0f) {
                continue;
            }
            // The adjusted backdrop is the layer's colour; it covers only what lies below it.
            float backdrop[3];
            unpremultiply(pixel, backdrop);
            float adjusted[3] = {backdrop[0], backdrop[1], backdrop[2]};
            node.adjustment->apply(adjusted);
            float blended[3];
            blendColor(node.mode, backdrop, adjusted, blended);
            const float w = amount * (node.ranges ? node.ranges->weight(adjusted, backdrop) : 1.0f);
            for (int c = 0; c < 3; ++c) {
                pixel[c] += w * (blended[c] - backdrop[c]) * pixel[3];
            }
        }
    }
}

void drawGroup(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const bool passThrough = node.mode == BlendMode::passThrough;
    if (passThrough && !shapeOut && !clip && !node.mask && !node.realMask && !node.vectorMask &&
        node.opacity >= 1.0f) {
        // Nothing to mix the members' result with: they draw straight onto the backdrop.
        drawNodes(node.children, tile);
        return;
    }
    Tile inner = passThrough ? tile : Tile(tile.left, tile.top, tile.width, tile.height);
    drawNodes(node.children, inner);
    if (shapeOut) {
        Tile isolated = passThrough ? Tile(tile.left, tile.top, tile.width, tile.height) : Tile(0, 0, 0, 0);
        if (passThrough) {
            drawNodes(node.children, isolated);
        }
        const Tile& alphaSource = passThrough ? isolated : inner;
        for (std::size_t i = 0; i < shapeOut->size(); ++i) {
            (*shapeOut)[i] = alphaSource.samples[i * 4 + 3];
        }
    }
    for (std::int64_t y = tile.top; y < tile.top + tile.height; ++y) {
        for (std::int64_t x = tile.left; x < tile.left + tile.width; ++x) {
            const std::size_t i = static_cast<std::size_t>((y - tile.top) * tile.width + (x - tile.left));
            const float mask = node.maskAt(x, y);
            if (shapeOut) {
                (*shapeOut)[i] *= mask;
            }
            const float weight = node.opacity * mask * (clip ? (*clip)[i] : 1.0f);
            float* pixel = tile.at(x, y);
            const float* drawn = inner.at(x, y);
            if (passThrough) {
                for (int c = 0; c < 4; ++c) {
                    pixel[c] += weight * (drawn[c] - pixel[c]);
                }
            } else if (drawn[3] > 0.0f && weight > 0.0f) {
                float rgb[3];
                unpremultiply(drawn, rgb);
                compositePixel(node.mode, rgb, drawn[3] * weight, pixel, x, y,
                               node.ranges ? &*node.ranges : nullptr);
            }
        }
    }
}

void drawNode(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    switch (node.kind) {
    case RenderNode::Kind::pixels:
        drawPixels(node, tile, clip, shapeOut);
        break;
    case RenderNode::Kind::fill:
        drawFill(node, tile, clip, shapeOut);
        break;
    case RenderNode::Kind::adjustment:
        drawAdjustment(node, tile, clip, shapeOut);
        break;
    case RenderNode::Kind::group:
        drawGroup(node, tile, clip, shapeOut);
        break;
    }
}

} // namespace

void compositePixelWithMode(BlendMode mode, const float* source, float alpha, float* pixel, std::int64_t x,
                            std::int64_t y, const BlendRanges* ranges) noexcept
{
    float backdrop[3];
    unpremultiply(pixel, backdrop);
    if (ranges) {
        alpha *= ranges->weight(source, backdrop);
    }
    if (mode == BlendMode::dissolve) {
        alpha = dissolveThreshold(x, y) < alpha ? 1.0f : 0.0f;
    }
    if (alpha <= 0.0f) {
        return;
    }
    const float backdropAlpha = pixel[3];
    if (mode == BlendMode::behind) {
        for (int c = 0; c < 3; ++c) {
            pixel[c] += (1.0f - backdropAlpha) * alpha * source[c];
        }
        pixel[3] = backdropAlpha + (1.0f - backdropAlpha) * alpha;
        return;
    }
    float blended[3];
    blendColor(mode, backdrop, source, blended);
    for (int c = 0; c < 3; ++c) {
        // Where the backdrop is transparent the source shows as it is; where it is opaque the
        // mode's result shows; source-over weighs that against what lies below.
        const float shown = (1.0f - backdropAlpha) * source[c] + backdropAlpha * blended[c];
        pixel[c] = alpha * shown + (1.0f - alpha) * pixel[c];
    }
    pixel[3] = alpha + backdropAlpha * (1.0f - alpha);
}

void drawNodes(const std::vector<RenderNode>& nodes, Tile& tile)
{
    for (const RenderNode& node : nodes) {
        if (node.clipped.empty()) {
            drawNode(node, tile, nullptr, nullptr);
            continue;
        }
        // A clipping group: the clipped layers show only where the base does, at its opacity.
        Shape shape(static_cast<std::size_t>(tile.width * tile.height), 0.0f);
        drawNode(node, tile, nullptr, &shape);
        for (float& s : shape) {
            s *= node.opacity;
        }
        for (const RenderNode& clippedNode : node.clipped) {
            drawNode(clippedNode, tile, &shape, nullptr);
        }
    }
}

} // namespace psdkit::detail
