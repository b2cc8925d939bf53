#include "psdkit/platform/image/InterleavedRGBA.hpp"

#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::image {
namespace {

template <typename Pixel, typename Sample>
std::shared_ptr<PixelBuffer<Pixel>> fromRGBA(IntegralSize size, std::span<const Sample> rgba)
{
    auto buffer = std::make_shared<PixelBuffer<Pixel>>(size);
    auto pixels = buffer->pixels();
    if (rgba.size() / 4 != pixels.size() || rgba.size() % 4 != 0) {
        throw ImageException(ImageError::rawSizeMismatch);
    }
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        Pixel& pixel = pixels[i];
        pixel.r = rgba[4 * i];
        pixel.g = rgba[4 * i + 1];
        pixel.b = rgba[4 * i + 2];
        pixel.a = rgba[4 * i + 3];
    }
    return buffer;
}

template <typename Sample, typename Pixel> std::vector<Sample> toRGBA(const PixelBuffer<Pixel>& buffer)
{
    const auto pixels = buffer.pixels();
    std::vector<Sample> rgba(pixels.size() * 4);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        rgba[4 * i] = pixels[i].r;
        rgba[4 * i + 1] = pixels[i].g;
        rgba[4 * i + 2] = pixels[i].b;
        rgba[4 * i + 3] = pixels[i].a;
    }
    return rgba;
}

} // namespace

std::shared_ptr<PixelBuffer<PixelARGB8>> pixelBufferFromRGBA(IntegralSize size,
                                                             std::span<const std::uint8_t> rgba)
{
    return fromRGBA<PixelARGB8>(size, rgba);
}
std::shared_ptr<PixelBuffer<PixelRGBA16>> pixelBufferFromRGBA(IntegralSize size,
                                                              std::span<const std::uint16_t> rgba)
{
    return fromRGBA<PixelRGBA16>(size, rgba);
}
std::shared_ptr<PixelBuffer<PixelRGBA32>> pixelBufferFromRGBA(IntegralSize size, std::span<const float> rgba)
{
    return fromRGBA<PixelRGBA32>(size, rgba);
}

std::vector<std::uint8_t> interleavedRGBA(const PixelBuffer<PixelARGB8>& buffer)
{
    return toRGBA<std::uint8_t>(buffer);
}
std::vector<std::uint16_t> interleavedRGBA(const PixelBuffer<PixelRGBA16>& buffer)
{
    return toRGBA<std::uint16_t>(buffer);
}
std::vector<float> interleavedRGBA(const PixelBuffer<PixelRGBA32>& buffer)
{
    return toRGBA<float>(buffer);
}

} // namespace psdkit::image
