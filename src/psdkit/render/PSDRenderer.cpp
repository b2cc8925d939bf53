#include "psdkit/render/PSDRenderer.hpp"

#include <algorithm>
#include <cmath>

#include "psdkit/render/RenderPlan.hpp"
#include "psdkit/render/TileCompositing.hpp"
#include "psdkit/render/TileWorkers.hpp"

namespace psdkit {

namespace {

const char* errorText(PSDRenderError error)
{
    switch (error) {
    case PSDRenderError::invalidOptions:
        return "render options out of range (scale or layer index)";
    case PSDRenderError::invalidRegion:
        return "the render region is empty or lies outside the canvas";
    case PSDRenderError::imageTooLarge:
        return "the image to render is too large";
    }
    return "render error";
}

using namespace detail;

/// Output tiles are this many pixels wide and high: wide, so that each row of a layer image is
/// read in long runs (a row of a large image spans pages of memory of its own).
constexpr std::int64_t tileWidth = 1024;
constexpr std::int64_t tileHeight = 16;

struct Geometry {
    image::IntegralRect region; ///< Document pixels rendered.
    double scale = 1.0;
    std::int64_t width = 0;  ///< Output columns.
    std::int64_t height = 0; ///< Output rows.

    /// The first document column (or row) output column `o` covers.
    [[nodiscard]] std::int64_t sourceStart(std::int64_t o, std::int64_t origin,
                                           std::int64_t extent) const noexcept
    {
        return origin +
               std::min(extent - 1, static_cast<std::int64_t>(std::floor(static_cast<double>(o) / scale)));
    }
    /// One past the last document column (or row) output column `o` covers (at least one).
    [[nodiscard]] std::int64_t sourceEnd(std::int64_t o, std::int64_t origin,
                                         std::int64_t extent) const noexcept
    {
        const auto end = static_cast<std::int64_t>(std::floor(static_cast<double>(o + 1) / scale));
        return std::max(sourceStart(o, origin, extent) + 1, origin + std::min(extent, end));
    }
};

Geometry checkedGeometry(const PSDWrapper& document, const PSDRenderOptions& options)
{
    if (!(options.scale > 0.0 && options.scale <= 16.0)) {
        throw PSDRenderException(PSDRenderError::invalidOptions);
    }
    if (options.layers) {
        for (const std::size_t index : *options.layers) {
            if (index >= document.layers.size()) {
                throw PSDRenderException(PSDRenderError::invalidOptions);
            }
        }
    }
    const std::int64_t canvasWidth = document.imageWidth;
    const std::int64_t canvasHeight = document.imageHeight;
    if (canvasWidth <= 0 || canvasHeight <= 0) {
        throw PSDRenderException(PSDRenderError::invalidRegion);
    }
    if (canvasWidth > maximumRenderPixels / canvasHeight) {
        throw PSDRenderException(PSDRenderError::imageTooLarge);
    }
    Geometry g;
    g.scale = options.scale;
    g.region = options.region.value_or(image::IntegralRect{0, 0, canvasWidth, canvasHeight});
    const std::int64_t left = std::max<std::int64_t>(g.region.x, 0);
    const std::int64_t top = std::max<std::int64_t>(g.region.y, 0);
    if (g.region.width <= 0 || g.region.height <= 0 || g.region.x > canvasWidth ||
        g.region.y > canvasHeight) {
        throw PSDRenderException(PSDRenderError::invalidRegion);
    }
    const std::int64_t right = std::min(canvasWidth, g.region.x + std::min(g.region.width, canvasWidth));
    const std::int64_t bottom = std::min(canvasHeight, g.region.y + std::min(g.region.height, canvasHeight));
    if (right <= left || bottom <= top) {
        throw PSDRenderException(PSDRenderError::invalidRegion);
    }
    g.region = {left, top, right - left, bottom - top};
    g.width = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(std::ceil(static_cast<double>(g.region.width) * g.scale)));
    g.height = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(std::ceil(static_cast<double>(g.region.height) * g.scale)));
    if (g.width > maximumRenderPixels / g.height) {
        throw PSDRenderException(PSDRenderError::imageTooLarge);
    }
    return g;
}

/// `v` limited to 0…1, NaN as 0.
float unitClamped(float v) noexcept
{
    return v > 0.0f ? std::min(v, 1.0f) : 0.0f;
}

// Rounding half up by adding one half: the values are never negative, and it is several times
// cheaper than a library call per sample.
std::uint8_t to8(float v)
{
    return static_cast<std::uint8_t>(unitClamped(v) * 255.0f + 0.5f);
}

std::uint16_t to16(float v)
{
    return static_cast<std::uint16_t>(unitClamped(v) * 65535.0f + 0.5f);
}

/// Stores `count` premultiplied pixels from `p` into the output from pixel `index` on,
/// unpremultiplied, at the output's depth.
void storeRow(image::PixelBufferType& out, std::size_t index, const float* p, std::int64_t count)
{
    // Colour over alpha where alpha is positive, zero elsewhere; alpha itself limited to 0…1. The
    // divisor is one where nothing is divided, so the four lanes need no branch.
    const auto unpremultiplied = [](const float* pixel, float* rgba) {
        const float a = std::clamp(pixel[3], 0.0f, 1.0f);
        const bool shown = a > 0.0f;
        const float divisor = shown ? pixel[3] : 1.0f;
        for (int c = 0; c < 3; ++c) {
            rgba[c] = (shown ? pixel[c] : 0.0f) / divisor;
        }
        rgba[3] = a;
    };
    const auto each = [&](auto&& write) {
        for (std::int64_t i = 0; i < count; ++i, p += 4) {
            float v[4];
            unpremultiplied(p, v);
            write(index + static_cast<std::size_t>(i), v);
        }
    };
    switch (out.format()) {
    case image::PixelFormat::rgba16: {
        auto pixels = static_cast<image::PixelBuffer<image::PixelRGBA16>&>(out).pixels();
        each([&](std::size_t at, const float* v) {
            pixels[at] = {to16(v[0]), to16(v[1]), to16(v[2]), to16(v[3])};
        });
        break;
    }
    case image::PixelFormat::rgba32: {
        auto pixels = static_cast<image::PixelBuffer<image::PixelRGBA32>&>(out).pixels();
        each([&](std::size_t at, const float* v) { pixels[at] = {v[0], v[1], v[2], v[3]}; });
        break;
    }
    default: {
        auto pixels = static_cast<image::PixelBuffer<image::PixelARGB8>&>(out).pixels();
        each([&](std::size_t at, const float* v) {
            pixels[at] = {to8(v[3]), to8(v[0]), to8(v[1]), to8(v[2])};
        });
        break;
    }
    }
}

} // namespace

PSDRenderException::PSDRenderException(PSDRenderError error)
    : std::runtime_error(errorText(error)), error_(error)
{
}

PSDRenderResult renderDocument(const PSDWrapper& document, const PSDRenderOptions& options)
{
    const Geometry g = checkedGeometry(document, options);
    PSDRenderResult result;
    const PSDMacRect region(g.region.y, g.region.x, g.region.y + g.region.height,
                            g.region.x + g.region.width);
    const RenderPlan plan = buildRenderPlan(document, options, region, result);
    result.image = image::makePixelBuffer(
        image::colorPixelFormatForDepth(document.bitDepth).value_or(image::PixelFormat::argb8),
        {g.width, g.height});
    image::PixelBufferType& out = *result.image;

    const std::int64_t columns = (g.width + tileWidth - 1) / tileWidth;
    const std::int64_t rows = (g.height + tileHeight - 1) / tileHeight;
    forEachTile(static_cast<std::size_t>(columns * rows), options.threadCount, [&](std::size_t t) {
        const std::int64_t ox = static_cast<std::int64_t>(t) % columns * tileWidth;
        const std::int64_t oy = static_cast<std::int64_t>(t) / columns * tileHeight;
        const std::int64_t ow = std::min(tileWidth, g.width - ox);
        const std::int64_t oh = std::min(tileHeight, g.height - oy);
        const std::int64_t sx0 = g.sourceStart(ox, g.region.x, g.region.width);
        const std::int64_t sy0 = g.sourceStart(oy, g.region.y, g.region.height);
        const std::int64_t sx1 = g.sourceEnd(ox + ow - 1, g.region.x, g.region.width);
        const std::int64_t sy1 = g.sourceEnd(oy + oh - 1, g.region.y, g.region.height);
        Tile tile(sx0, sy0, sx1 - sx0, sy1 - sy0);
        if (options.whiteBackground) {
            std::fill(tile.samples.begin(), tile.samples.end(), 1.0f);
        }
        drawNodes(plan.roots, tile);
        if (g.scale == 1.0) {
            // One document pixel per output pixel: no averaging.
            for (std::int64_t y = oy; y < oy + oh; ++y) {
                storeRow(out, static_cast<std::size_t>(y * g.width + ox), tile.at(sx0, sy0 + y - oy), ow);
            }
            return;
        }
        for (std::int64_t y = oy; y < oy + oh; ++y) {
            const std::int64_t ty0 = g.sourceStart(y, g.region.y, g.region.height);
            const std::int64_t ty1 = g.sourceEnd(y, g.region.y, g.region.height);
            for (std::int64_t x = ox; x < ox + ow; ++x) {
                const std::int64_t tx0 = g.sourceStart(x, g.region.x, g.region.width);
                const std::int64_t tx1 = g.sourceEnd(x, g.region.x, g.region.width);
                float sum[4] = {0, 0, 0, 0};
                for (std::int64_t sy = ty0; sy < ty1; ++sy) {
                    for (std::int64_t sx = tx0; sx < tx1; ++sx) {
                        const float* p = tile.at(sx, sy);
                        for (int c = 0; c < 4; ++c) {
                            sum[c] += p[c];
                        }
                    }
                }
                const auto count = static_cast<float>((ty1 - ty0) * (tx1 - tx0));
                for (float& s : sum) {
                    s /= count;
                }
                storeRow(out, static_cast<std::size_t>(y * g.width + x), sum, 1);
            }
        }
    });
    return result;
}

} // namespace psdkit
