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

} // namespace

void unmatteFromWhite(image::PixelBufferType& composite)
{
    using namespace image;
    if (auto* argb8 = dynamic_cast<PixelBuffer<PixelARGB8>*>(&composite)) {
        unmatte<PixelARGB8, std::uint8_t>(*argb8, 255.0);
    } else if (auto* rgba16 = dynamic_cast<PixelBuffer<PixelRGBA16>*>(&composite)) {
        unmatte<PixelRGBA16, std::uint16_t>(*rgba16, 65535.0);
    } else if (auto* rgba32 = dynamic_cast<PixelBuffer<PixelRGBA32>*>(&composite)) {
        unmatte<PixelRGBA32, float>(*rgba32, 1.0);
    }
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
