#include "Compositor.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Cli.hpp"
#include "LayerTree.hpp"

namespace psdkit::cli {

namespace {

using namespace image;

// Canvases of more pixels than this are not rendered (16 bytes a pixel: 4 GiB).
constexpr std::int64_t kMaximumCanvasPixels = std::int64_t{1} << 28;

/// Premultiplied RGBA floats, row after row.
struct Canvas {
    std::int64_t width;
    std::int64_t height;
    std::vector<float> samples;

    Canvas(std::int64_t w, std::int64_t h)
        : width(w), height(h), samples(static_cast<std::size_t>(w * h * 4), 0.0f)
    {
    }
    float* at(std::int64_t x, std::int64_t y)
    {
        return samples.data() + static_cast<std::size_t>((y * width + x) * 4);
    }
};

/// One pixel of a colour buffer as non-premultiplied floats 0..1 (32-bit samples as stored).
std::array<float, 4> colourAt(const PixelBufferType& buffer, std::int64_t x, std::int64_t y)
{
    switch (buffer.format()) {
    case PixelFormat::argb8: {
        const auto& p = static_cast<const PixelBuffer<PixelARGB8>&>(buffer).at(x, y);
        return {p.r / 255.0f, p.g / 255.0f, p.b / 255.0f, p.a / 255.0f};
    }
    case PixelFormat::rgba16: {
        const auto& p = static_cast<const PixelBuffer<PixelRGBA16>&>(buffer).at(x, y);
        return {p.r / 65535.0f, p.g / 65535.0f, p.b / 65535.0f, p.a / 65535.0f};
    }
    case PixelFormat::rgba32: {
        const auto& p = static_cast<const PixelBuffer<PixelRGBA32>&>(buffer).at(x, y);
        return {p.r, p.g, p.b, std::isnan(p.a) ? 0.0f : std::clamp(p.a, 0.0f, 1.0f)};
    }
    default:
        return {0, 0, 0, 0};
    }
}

/// One sample of a grey buffer as 0..1.
float greyAt(const PixelBufferType& buffer, std::int64_t x, std::int64_t y)
{
    switch (buffer.format()) {
    case PixelFormat::gray8:
        return static_cast<const PixelBuffer<PixelGray8>&>(buffer).at(x, y).v / 255.0f;
    case PixelFormat::gray16:
        return static_cast<const PixelBuffer<PixelGray16>&>(buffer).at(x, y).v / 65535.0f;
    case PixelFormat::gray32: {
        const float v = static_cast<const PixelBuffer<PixelGray32>&>(buffer).at(x, y).v;
        return std::isnan(v) ? 0.0f : std::clamp(v, 0.0f, 1.0f);
    }
    default:
        return 1.0f;
    }
}

/// The mask value at document position (x, y): inside the mask image its sample, elsewhere the
/// mask's default colour; 1 when the layer has no enabled mask.
float maskAt(const PSDLayerWrapper& layer, std::int64_t x, std::int64_t y)
{
    if (!layer.hasLayerMask || layer.maskDisabled || !layer.maskImage()) {
        return 1.0f;
    }
    const std::int64_t mx = x - layer.maskRect.left;
    const std::int64_t my = y - layer.maskRect.top;
    const IntegralSize size = layer.maskImage()->size();
    if (mx < 0 || my < 0 || mx >= size.width || my >= size.height) {
        return static_cast<float>(layer.maskDefaultColor);
    }
    return greyAt(*layer.maskImage(), mx, my);
}

void blendLayer(Canvas& canvas, const PSDLayerWrapper& layer)
{
    const PixelBufferType* image = layer.contentImage().get();
    if (!image || channelCount(image->format()) != 4) {
        return;
    }
    const auto weight = static_cast<float>(layer.opacity * layer.fillOpacity);
    const IntegralSize size = image->size();
    const std::int64_t width = std::min(size.width, layer.contentsRect.width());
    const std::int64_t height = std::min(size.height, layer.contentsRect.height());
    // Only the part of the layer that lies on the canvas.
    const std::int64_t x0 = std::max<std::int64_t>(0, -layer.contentsRect.left);
    const std::int64_t y0 = std::max<std::int64_t>(0, -layer.contentsRect.top);
    const std::int64_t x1 = std::min(width, canvas.width - layer.contentsRect.left);
    const std::int64_t y1 = std::min(height, canvas.height - layer.contentsRect.top);
    for (std::int64_t y = y0; y < y1; ++y) {
        const std::int64_t cy = y + layer.contentsRect.top;
        for (std::int64_t x = x0; x < x1; ++x) {
            const std::int64_t cx = x + layer.contentsRect.left;
            const std::array<float, 4> source = colourAt(*image, x, y);
            const float alpha = source[3] * weight * maskAt(layer, cx, cy);
            float* target = canvas.at(cx, cy);
            for (int c = 0; c < 3; ++c) {
                target[c] = source[static_cast<std::size_t>(c)] * alpha + target[c] * (1.0f - alpha);
            }
            target[3] = alpha + target[3] * (1.0f - alpha);
        }
    }
}

void blendCanvas(Canvas& target, const Canvas& source, float weight)
{
    for (std::size_t i = 0; i < target.samples.size(); i += 4) {
        const float alpha = source.samples[i + 3] * weight;
        for (std::size_t c = 0; c < 3; ++c) {
            target.samples[i + c] = source.samples[i + c] * weight + target.samples[i + c] * (1.0f - alpha);
        }
        target.samples[i + 3] = alpha + target.samples[i + 3] * (1.0f - alpha);
    }
}

void renderNodes(Canvas& canvas, const PSDWrapper& document, const std::vector<LayerNode>& topFirst)
{
    for (auto node = topFirst.rbegin(); node != topFirst.rend(); ++node) {
        const PSDLayerWrapper& layer = *document.layers[node->index];
        if (!layer.visible) {
            continue;
        }
        if (node->isGroup) {
            Canvas group(canvas.width, canvas.height);
            renderNodes(group, document, node->children);
            blendCanvas(canvas, group, static_cast<float>(layer.opacity));
        } else if (layer.type().kind() == PSDLayerType::Kind::regular) {
            blendLayer(canvas, layer);
        }
    }
}

float unpremultiplied(const float* pixel, int c)
{
    return pixel[3] > 0.0f ? std::clamp(pixel[c] / pixel[3], 0.0f, 1.0f) : 0.0f;
}

template <typename P, typename Store> std::shared_ptr<PixelBufferType> toBuffer(Canvas& canvas, Store&& store)
{
    auto buffer = std::make_shared<PixelBuffer<P>>(IntegralSize{canvas.width, canvas.height});
    auto pixels = buffer->pixels();
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        store(pixels[i], canvas.samples.data() + i * 4);
    }
    return buffer;
}

std::uint8_t to8(float v)
{
    return static_cast<std::uint8_t>(std::lround(v * 255.0f));
}

std::uint16_t to16(float v)
{
    return static_cast<std::uint16_t>(std::lround(v * 65535.0f));
}

} // namespace

std::shared_ptr<image::PixelBufferType> compositeLayers(const PSDWrapper& document)
{
    const std::int64_t width = document.imageWidth;
    const std::int64_t height = document.imageHeight;
    if (width < 0 || height < 0 || (height > 0 && width > kMaximumCanvasPixels / height)) {
        throw InputError("the canvas is too large to render");
    }
    Canvas canvas(width, height);
    renderNodes(canvas, document, buildLayerTree(document.layers).roots);
    switch (document.bitDepth) {
    case 16:
        return toBuffer<PixelRGBA16>(canvas, [](PixelRGBA16& p, const float* s) {
            p = {to16(unpremultiplied(s, 0)), to16(unpremultiplied(s, 1)), to16(unpremultiplied(s, 2)),
                 to16(std::clamp(s[3], 0.0f, 1.0f))};
        });
    case 32:
        return toBuffer<PixelRGBA32>(canvas, [](PixelRGBA32& p, const float* s) {
            const float a = std::clamp(s[3], 0.0f, 1.0f);
            p = {a > 0 ? s[0] / s[3] : 0.0f, a > 0 ? s[1] / s[3] : 0.0f, a > 0 ? s[2] / s[3] : 0.0f, a};
        });
    default:
        return toBuffer<PixelARGB8>(canvas, [](PixelARGB8& p, const float* s) {
            p = {to8(std::clamp(s[3], 0.0f, 1.0f)), to8(unpremultiplied(s, 0)), to8(unpremultiplied(s, 1)),
                 to8(unpremultiplied(s, 2))};
        });
    }
}

} // namespace psdkit::cli
