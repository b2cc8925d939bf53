#include "psdkit/render/TileCompositing.hpp"

#include <algorithm>
#include <cstring>
#include <optional>

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

/// The part of a tile (document pixels, right and bottom exclusive) a node can change.
struct Area {
    std::int64_t left, top, right, bottom;
};

Area areaOf(const RenderNode& node, const Tile& tile) noexcept
{
    Area area{tile.left, tile.top, tile.left + tile.width, tile.top + tile.height};
    if (node.reach) {
        area.left = std::max(area.left, node.reach->left);
        area.top = std::max(area.top, node.reach->top);
        area.right = std::max(area.left, std::min(area.right, node.reach->right));
        area.bottom = std::max(area.top, std::min(area.bottom, node.reach->bottom));
    }
    return area;
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

/// Row `y` of a layer image from column `first`, `count` pixels, as unpremultiplied red, green,
/// blue, alpha floats (alpha limited to 0…1).
void readContentRow(const image::PixelBufferType& content, std::size_t first, std::int64_t count,
                    float* rgba) noexcept
{
    const auto bytes = content.bytes();
    switch (content.format()) {
    case image::PixelFormat::argb8: {
        const std::uint8_t* p = bytes.data() + first * 4;
        for (std::int64_t i = 0; i < count; ++i, p += 4, rgba += 4) {
            rgba[3] = static_cast<float>(p[0]) * (1.0f / 255.0f);
            rgba[0] = static_cast<float>(p[1]) * (1.0f / 255.0f);
            rgba[1] = static_cast<float>(p[2]) * (1.0f / 255.0f);
            rgba[2] = static_cast<float>(p[3]) * (1.0f / 255.0f);
        }
        break;
    }
    case image::PixelFormat::rgba16: {
        const std::uint8_t* p = bytes.data() + first * 8;
        for (std::int64_t i = 0; i < count * 4; ++i, p += 2) {
            std::uint16_t v;
            std::memcpy(&v, p, 2);
            rgba[i] = v * (1.0f / 65535.0f);
        }
        break;
    }
    default:
        for (std::int64_t i = 0; i < count; ++i, rgba += 4) {
            for (std::size_t c = 0; c < 4; ++c) {
                rgba[c] = sampleToFloat(content, (first + static_cast<std::size_t>(i)) * 4 + c);
            }
            rgba[3] = std::clamp(rgba[3], 0.0f, 1.0f);
        }
        break;
    }
}

void drawPixels(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const image::PixelBufferType& content = *node.content;
    const auto size = content.size();
    // The reach of a pixel layer lies inside its image; the image bounds the loops all the same.
    const Area area = areaOf(node, tile);
    const std::int64_t left = std::max(area.left, node.contentRect.left);
    const std::int64_t top = std::max(area.top, node.contentRect.top);
    const std::int64_t right =
        std::min({area.right, node.contentRect.right, node.contentRect.left + size.width});
    const std::int64_t bottom =
        std::min({area.bottom, node.contentRect.bottom, node.contentRect.top + size.height});
    if (right <= left || bottom <= top) {
        return;
    }
    const float weight = node.opacity * node.fillOpacity;
    const bool masked = node.hasMask();
    // Plain source-over, the common case, runs without the per-pixel dispatch.
    const bool sourceOver = node.mode == BlendMode::normal && !node.ranges && !clip && !shapeOut;
    const std::int64_t count = right - left;
    std::vector<float> rgbaRow(static_cast<std::size_t>(count * 4));
    std::vector<float> maskRow(masked ? static_cast<std::size_t>(count) : 0);
    for (std::int64_t y = top; y < bottom; ++y) {
        readContentRow(content,
                       static_cast<std::size_t>((y - node.contentRect.top) * size.width +
                                                (left - node.contentRect.left)),
                       count, rgbaRow.data());
        if (masked) {
            node.maskRow(y, left, right, maskRow.data());
        }
        const float* rgba = rgbaRow.data();
        if (sourceOver) {
            float* pixel = tile.at(left, y);
            for (std::int64_t i = 0; i < count; ++i, rgba += 4, pixel += 4) {
                const float shape = masked ? rgba[3] * maskRow[static_cast<std::size_t>(i)] : rgba[3];
                const float alpha = shape * weight;
                // Alpha mixes like a colour whose source value is one: one formula for all four.
                const float source[4] = {rgba[0], rgba[1], rgba[2], 1.0f};
                if (alpha > 0.0f) {
                    for (int c = 0; c < 4; ++c) {
                        pixel[c] = alpha * source[c] + (1.0f - alpha) * pixel[c];
                    }
                }
            }
            continue;
        }
        for (std::int64_t i = 0; i < count; ++i, rgba += 4) {
            const float shape = masked ? rgba[3] * maskRow[static_cast<std::size_t>(i)] : rgba[3];
            blendPixel(node, tile, left + i, y, rgba, shape * weight, shape, clip, shapeOut);
        }
    }
}

void drawFill(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const float weight = node.opacity * node.fillOpacity;
    const Area area = areaOf(node, tile);
    std::vector<float> maskRow(static_cast<std::size_t>(area.right - area.left));
    for (std::int64_t y = area.top; y < area.bottom; ++y) {
        node.maskRow(y, area.left, area.right, maskRow.data());
        for (std::int64_t x = area.left; x < area.right; ++x) {
            float rgba[4];
            node.fill->colorAt(x, y, rgba);
            const float shape = rgba[3] * maskRow[static_cast<std::size_t>(x - area.left)];
            blendPixel(node, tile, x, y, rgba, shape * weight, shape, clip, shapeOut);
        }
    }
}

void drawAdjustment(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const float weight = node.opacity * node.fillOpacity;
    const Area area = areaOf(node, tile);
    std::vector<float> maskRow(static_cast<std::size_t>(area.right - area.left));
    for (std::int64_t y = area.top; y < area.bottom; ++y) {
        node.maskRow(y, area.left, area.right, maskRow.data());
        for (std::int64_t x = area.left; x < area.right; ++x) {
            const float shape = maskRow[static_cast<std::size_t>(x - area.left)];
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

/// A tile of the same place as `tile`'s rows `top`… and columns `left`… (`width` × `height`),
/// copied from it or transparent.
Tile subTile(const Tile& tile, std::int64_t left, std::int64_t top, std::int64_t width, std::int64_t height,
             bool copied)
{
    Tile part(left, top, width, height);
    if (copied) {
        for (std::int64_t y = top; y < top + height; ++y) {
            const float* from =
                tile.samples.data() +
                static_cast<std::size_t>(((y - tile.top) * tile.width + (left - tile.left)) * 4);
            std::copy(from, from + width * 4, part.at(left, y));
        }
    }
    return part;
}

void drawGroup(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    const bool passThrough = node.mode == BlendMode::passThrough;
    if (passThrough && !shapeOut && !clip && !node.hasMask() && node.opacity >= 1.0f) {
        // Nothing to mix the members' result with: they draw straight onto the backdrop.
        drawNodes(node.children, tile);
        return;
    }
    // Outside the group's reach (its members', within a mask that is zero outside) the mix leaves
    // the backdrop and the clip shape as they are, so only that part of the tile is drawn and mixed.
    const auto [left, top, right, bottom] = areaOf(node, tile);
    Tile inner = subTile(tile, left, top, right - left, bottom - top, passThrough);
    drawNodes(node.children, inner);
    std::optional<Tile> isolated;
    if (shapeOut && passThrough) {
        isolated.emplace(left, top, right - left, bottom - top);
        drawNodes(node.children, *isolated);
    }
    const Tile& alphaSource = isolated ? *isolated : inner;
    std::vector<float> maskRow(static_cast<std::size_t>(right - left));
    for (std::int64_t y = top; y < bottom; ++y) {
        node.maskRow(y, left, right, maskRow.data());
        for (std::int64_t x = left; x < right; ++x) {
            const std::size_t i = static_cast<std::size_t>((y - tile.top) * tile.width + (x - tile.left));
            const float mask = maskRow[static_cast<std::size_t>(x - left)];
            if (shapeOut) {
                (*shapeOut)[i] = alphaSource.samples[static_cast<std::size_t>(
                                     ((y - top) * (right - left) + (x - left)) * 4 + 3)] *
                                 mask;
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

/// Whether `node` can change anything on `tile`.
bool reaches(const RenderNode& node, const Tile& tile) noexcept
{
    const Area area = areaOf(node, tile);
    return area.right > area.left && area.bottom > area.top;
}

void drawNode(const RenderNode& node, Tile& tile, const Shape* clip, Shape* shapeOut)
{
    if (!reaches(node, tile)) {
        return;
    }
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
    // Where the backdrop is transparent the source shows as it is; where it is opaque the mode's
    // result shows; source-over weighs that against what lies below. Separable modes go channel by
    // channel, without a colour in between.
    const auto mix = [&](int c, float blended) {
        const float shown = (1.0f - backdropAlpha) * source[c] + backdropAlpha * blended;
        pixel[c] = alpha * shown + (1.0f - alpha) * pixel[c];
    };
    if (isSeparable(mode)) {
        for (int c = 0; c < 3; ++c) {
            mix(c, blendChannel(mode, backdrop[c], source[c]));
        }
    } else {
        float blended[3];
        blendColor(mode, backdrop, source, blended);
        for (int c = 0; c < 3; ++c) {
            mix(c, blended[c]);
        }
    }
    pixel[3] = alpha + backdropAlpha * (1.0f - alpha);
}

void drawNodes(const std::vector<RenderNode>& nodes, Tile& tile)
{
    for (const RenderNode& node : nodes) {
        if (!reaches(node, tile)) {
            continue; // nor can the layers clipped to it
        }
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
