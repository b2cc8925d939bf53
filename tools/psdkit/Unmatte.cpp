#include "Unmatte.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace psdkit::cli {
namespace {

template <typename Pixel, typename Sample> void unmatte(image::PixelBuffer<Pixel>& buffer, double maximum)
{
    for (Pixel& pixel : buffer.pixels()) {
        const double alpha = static_cast<double>(pixel.a);
        if (!(alpha > 0)) {
            pixel.r = pixel.g = pixel.b = Sample{};
            continue;
        }
        for (Sample* sample : {&pixel.r, &pixel.g, &pixel.b}) {
            const double colour = (static_cast<double>(*sample) + alpha - maximum) * maximum / alpha;
            if constexpr (std::is_floating_point_v<Sample>) {
                *sample = static_cast<Sample>(std::clamp(colour, 0.0, maximum));
            } else {
                *sample = static_cast<Sample>(std::clamp(std::floor(colour + 0.5), 0.0, maximum));
            }
        }
    }
}

template <typename Pixel, typename Sample> void matte(image::PixelBuffer<Pixel>& buffer, double maximum)
{
    for (Pixel& pixel : buffer.pixels()) {
        const double alpha = static_cast<double>(pixel.a) / maximum;
        for (Sample* sample : {&pixel.r, &pixel.g, &pixel.b}) {
            const double colour = alpha * static_cast<double>(*sample) + (1.0 - alpha) * maximum;
            if constexpr (std::is_floating_point_v<Sample>) {
                *sample = static_cast<Sample>(colour);
            } else {
                *sample = static_cast<Sample>(std::clamp(std::floor(colour + 0.5), 0.0, maximum));
            }
        }
    }
}

// Calls `work<Pixel, Sample>(buffer, maximum)` for the colour buffer types.
template <template <typename, typename> class Work> void forColourBuffer(image::PixelBufferType& buffer)
{
    using namespace image;
    if (auto* argb8 = dynamic_cast<PixelBuffer<PixelARGB8>*>(&buffer)) {
        Work<PixelARGB8, std::uint8_t>::run(*argb8, 255.0);
    } else if (auto* rgba16 = dynamic_cast<PixelBuffer<PixelRGBA16>*>(&buffer)) {
        Work<PixelRGBA16, std::uint16_t>::run(*rgba16, 65535.0);
    } else if (auto* rgba32 = dynamic_cast<PixelBuffer<PixelRGBA32>*>(&buffer)) {
        Work<PixelRGBA32, float>::run(*rgba32, 1.0);
    }
}

template <typename Pixel, typename Sample> struct Unmatte {
    static void run(image::PixelBuffer<Pixel>& buffer, double maximum)
    {
        unmatte<Pixel, Sample>(buffer, maximum);
    }
};
template <typename Pixel, typename Sample> struct Matte {
    static void run(image::PixelBuffer<Pixel>& buffer, double maximum)
    {
        matte<Pixel, Sample>(buffer, maximum);
    }
};

} // namespace

void unmatteFromWhite(image::PixelBufferType& composite)
{
    forColourBuffer<Unmatte>(composite);
}

void matteOntoWhite(image::PixelBufferType& composite)
{
    forColourBuffer<Matte>(composite);
}

bool isUniform(const image::PixelBufferType& image)
{
    const auto bytes = image.bytes();
    const std::size_t pixelBytes = image::bytesPerPixel(image.format());
    for (std::size_t at = pixelBytes; at + pixelBytes <= bytes.size(); at += pixelBytes) {
        if (std::memcmp(bytes.data(), bytes.data() + at, pixelBytes) != 0) {
            return false;
        }
    }
    return true;
}

} // namespace psdkit::cli
