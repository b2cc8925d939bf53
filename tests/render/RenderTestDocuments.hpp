#pragma once
// Small documents built in memory for the renderer's tests: solid layers, masks, groups.
#include <memory>
#include <vector>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit::rendertest {

/// An 8-bit colour with transparency.
struct Rgba8 {
    int r, g, b, a = 255;
    friend bool operator==(const Rgba8&, const Rgba8&) = default;
};

/// A document of `width` × `height` at `depth` bits.
inline PSDWrapper makeDocument(std::int64_t width, std::int64_t height, std::int64_t depth = 8)
{
    PSDWrapper document;
    document.imageWidth = width;
    document.imageHeight = height;
    document.bitDepth = depth;
    document.numberOfChannels = 4;
    return document;
}

/// A pixel layer of one colour over `rect`, at the document's depth.
inline std::shared_ptr<PSDLayerWrapper> solidLayer(const PSDWrapper& document, Rgba8 color, PSDMacRect rect)
{
    auto layer = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    layer->contentsRect = rect;
    const image::IntegralSize size = rect.size();
    if (document.bitDepth == 16) {
        auto buffer = std::make_shared<image::PixelBuffer<image::PixelRGBA16>>(size);
        for (auto& p : buffer->pixels()) {
            p = {static_cast<std::uint16_t>(color.r * 257), static_cast<std::uint16_t>(color.g * 257),
                 static_cast<std::uint16_t>(color.b * 257), static_cast<std::uint16_t>(color.a * 257)};
        }
        layer->setContentImage(buffer);
    } else if (document.bitDepth == 32) {
        auto buffer = std::make_shared<image::PixelBuffer<image::PixelRGBA32>>(size);
        for (auto& p : buffer->pixels()) {
            p = {static_cast<float>(color.r) / 255.0f, static_cast<float>(color.g) / 255.0f,
                 static_cast<float>(color.b) / 255.0f, static_cast<float>(color.a) / 255.0f};
        }
        layer->setContentImage(buffer);
    } else {
        auto buffer = std::make_shared<image::PixelBuffer<image::PixelARGB8>>(size);
        for (auto& p : buffer->pixels()) {
            p = {static_cast<std::uint8_t>(color.a), static_cast<std::uint8_t>(color.r),
                 static_cast<std::uint8_t>(color.g), static_cast<std::uint8_t>(color.b)};
        }
        layer->setContentImage(buffer);
    }
    return layer;
}

/// An 8-bit grey mask image with the given samples, row after row, placed at `rect`.
inline void setMask(PSDLayerWrapper& layer, PSDMacRect rect, const std::vector<std::uint8_t>& samples)
{
    auto buffer = std::make_shared<image::PixelBuffer<image::PixelGray8>>(rect.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        buffer->pixels()[i].v = samples[i];
    }
    layer.hasLayerMask = true;
    layer.maskRect = rect;
    layer.setMaskImage(buffer);
}

/// Opens a group: appends the divider now (it lies below the members); `closeGroup` appends the
/// group's own record after the members.
inline void openGroup(PSDWrapper& document)
{
    document.addSectionDivider();
}

/// Appends the record that names a group over the members added since `openGroup`.
inline std::shared_ptr<PSDLayerWrapper> closeGroup(PSDWrapper& document, const char* blendKey = "pass")
{
    auto group = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    group->setType(PSDLayerType::group());
    group->blendMode = PSDFourCharCode(std::string(blendKey));
    document.addLayerWrapper(group);
    return group;
}

/// Options with only the fields `set` changes.
template <typename Set> PSDRenderOptions renderOptions(Set set)
{
    PSDRenderOptions options;
    set(options);
    return options;
}

/// The pixel at (x, y) of an 8-bit render.
inline Rgba8 pixel8(const image::PixelBufferType& image, std::int64_t x, std::int64_t y)
{
    const auto& p = static_cast<const image::PixelBuffer<image::PixelARGB8>&>(image).at(x, y);
    return {p.r, p.g, p.b, p.a};
}

} // namespace psdkit::rendertest
