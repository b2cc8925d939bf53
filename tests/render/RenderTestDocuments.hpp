#pragma once
// Small documents built in memory for the renderer's tests: solid layers, masks, groups.
#include <algorithm>
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

template <typename Pixel> void setContent(PSDLayerWrapper& layer, PSDMacRect rect, Pixel pixel)
{
    auto buffer = std::make_shared<image::PixelBuffer<Pixel>>(rect.size());
    std::ranges::fill(buffer->pixels(), pixel);
    layer.contentsRect = rect;
    layer.setContentImage(buffer);
}

/// Adds a pixel layer of one colour over `rect` at the document's depth, with `opacity` and the
/// blend mode `key`; returns it.
inline std::shared_ptr<PSDLayerWrapper> add(PSDWrapper& document, Rgba8 c, PSDMacRect rect = {0, 0, 1, 2},
                                            double opacity = 1, const char* key = "norm")
{
    auto layer = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    const auto to16 = [](int v) { return static_cast<std::uint16_t>(v * 257); };
    const auto to32 = [](int v) { return static_cast<float>(v) / 255.0f; };
    if (document.bitDepth == 16) {
        setContent(*layer, rect, image::PixelRGBA16{to16(c.r), to16(c.g), to16(c.b), to16(c.a)});
    } else if (document.bitDepth == 32) {
        setContent(*layer, rect, image::PixelRGBA32{to32(c.r), to32(c.g), to32(c.b), to32(c.a)});
    } else {
        const auto to8 = [](int v) { return static_cast<std::uint8_t>(v); };
        setContent(*layer, rect, image::PixelARGB8{to8(c.a), to8(c.r), to8(c.g), to8(c.b)});
    }
    layer->opacity = opacity;
    layer->blendMode = PSDFourCharCode(std::string(key));
    document.addLayerWrapper(layer);
    return layer;
}

/// Adds a group of the members `members` adds, with the blend mode `key` and `opacity`; returns
/// the group's record (the divider lies below the members, the record above them).
template <typename Members>
std::shared_ptr<PSDLayerWrapper> addGroup(PSDWrapper& document, const char* key, double opacity,
                                          Members members)
{
    document.addSectionDivider();
    members(document);
    auto group = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    group->setType(PSDLayerType::group());
    group->blendMode = PSDFourCharCode(std::string(key));
    group->opacity = opacity;
    document.addLayerWrapper(group);
    return group;
}

/// Gives `layer` a mask of one sample at (0, 0), with `defaultColor` elsewhere; returns the layer.
inline PSDLayerWrapper& masked(std::shared_ptr<PSDLayerWrapper> layer, std::uint8_t sample,
                               double defaultColor = 1)
{
    auto buffer = std::make_shared<image::PixelBuffer<image::PixelGray8>>(image::IntegralSize{1, 1});
    buffer->pixels()[0].v = sample;
    layer->hasLayerMask = true;
    layer->maskRect = {0, 0, 1, 1};
    layer->maskDefaultColor = defaultColor;
    layer->setMaskImage(buffer);
    return *layer;
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
