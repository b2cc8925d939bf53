#include "Thumbnail.hpp"

#include <algorithm>

namespace psdkit::cli {
namespace {

// Sample `c` of the pixel at (x, y), scaled to 0..255.
double sample8(const PngPixels& pixels, std::uint32_t x, std::uint32_t y, int c)
{
    const std::size_t index =
        (static_cast<std::size_t>(y) * pixels.width + x) * static_cast<std::size_t>(pixels.channels) +
        static_cast<std::size_t>(c);
    if (pixels.bitDepth == 16) {
        const std::size_t at = index * 2;
        return (pixels.data[at] * 256.0 + pixels.data[at + 1]) / 257.0;
    }
    return pixels.data[index];
}

} // namespace

PngPixels thumbnailPixels(const PngPixels& pixels)
{
    const std::uint32_t longest = std::max(pixels.width, pixels.height);
    const double scale = longest > thumbnailSide ? static_cast<double>(thumbnailSide) / longest : 1.0;
    PngPixels out;
    out.width = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(pixels.width * scale));
    out.height = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(pixels.height * scale));
    out.channels = pixels.channels;
    out.bitDepth = 8;
    out.data.resize(static_cast<std::size_t>(out.width) * out.height *
                    static_cast<std::size_t>(out.channels));
    const bool colour = pixels.channels == 4;
    for (std::uint32_t oy = 0; oy < out.height; ++oy) {
        const std::uint32_t y0 = static_cast<std::uint32_t>(std::uint64_t{oy} * pixels.height / out.height);
        const std::uint32_t y1 =
            std::max(y0 + 1, static_cast<std::uint32_t>(std::uint64_t{oy + 1} * pixels.height / out.height));
        for (std::uint32_t ox = 0; ox < out.width; ++ox) {
            const std::uint32_t x0 = static_cast<std::uint32_t>(std::uint64_t{ox} * pixels.width / out.width);
            const std::uint32_t x1 = std::max(
                x0 + 1, static_cast<std::uint32_t>(std::uint64_t{ox + 1} * pixels.width / out.width));
            double sums[4] = {0, 0, 0, 0};
            double count = 0;
            for (std::uint32_t y = y0; y < y1; ++y) {
                for (std::uint32_t x = x0; x < x1; ++x) {
                    const double weight = colour ? sample8(pixels, x, y, 3) / 255.0 : 1.0;
                    for (int c = 0; c < pixels.channels; ++c) {
                        sums[c] +=
                            colour && c < 3 ? sample8(pixels, x, y, c) * weight : sample8(pixels, x, y, c);
                    }
                    count += 1;
                }
            }
            std::uint8_t* target = &out.data[(static_cast<std::size_t>(oy) * out.width + ox) *
                                             static_cast<std::size_t>(out.channels)];
            const double coverage = colour ? sums[3] / 255.0 : 0.0; // sum of the weights
            for (int c = 0; c < pixels.channels; ++c) {
                const double value =
                    colour && c < 3 ? (coverage > 0 ? sums[c] / coverage : 0.0) : sums[c] / count;
                target[c] = static_cast<std::uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
            }
        }
    }
    return out;
}

} // namespace psdkit::cli
