#pragma once
// Synthetic but realistic layer content for the image benchmarks: a photographic layer (smooth
// gradients with sensor-like noise, opaque) and a graphic layer (flat shapes with soft edges on a
// transparent background).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>

#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::bench {

enum class Content { photo, shapes };

inline const char* contentName(Content c)
{
    return c == Content::photo ? "photo" : "shapes";
}

/// Fills `buffer` with `content`; `maximum` is the sample maximum (255 or 65535, 1 for floats).
/// `store(pixel, r, g, b, a)` writes one pixel from values in 0…1.
template <typename P, typename Store> void fill(image::PixelBuffer<P>& buffer, Content content, Store store)
{
    const auto size = buffer.size();
    const double w = static_cast<double>(size.width);
    const double h = static_cast<double>(size.height);
    std::mt19937 random(12345);
    std::normal_distribution<double> noise(0.0, 0.006);
    struct Shape {
        double cx, cy, radius, r, g, b;
    };
    Shape shapes[12];
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (Shape& s : shapes) {
        s = {unit(random) * w, unit(random) * h, (0.05 + 0.2 * unit(random)) * w,
             unit(random),     unit(random),     unit(random)};
    }
    for (std::int64_t y = 0; y < size.height; ++y) {
        for (std::int64_t x = 0; x < size.width; ++x) {
            const double u = static_cast<double>(x) / w;
            const double v = static_cast<double>(y) / h;
            double r = 0, g = 0, b = 0, a = 0;
            if (content == Content::photo) {
                r = 0.2 + 0.6 * u * v + noise(random);
                g = 0.5 + 0.3 * std::sin(3.0 * u + 2.0 * v) + noise(random);
                b = 0.8 - 0.5 * v + 0.1 * std::cos(5.0 * u) + noise(random);
                a = 1.0;
            } else {
                for (const Shape& s : shapes) {
                    const double d = std::hypot(static_cast<double>(x) - s.cx, static_cast<double>(y) - s.cy);
                    const double coverage = std::clamp((s.radius - d) / 3.0, 0.0, 1.0); // 3-pixel soft edge
                    if (coverage > 0) {
                        r = r * (1 - coverage) + s.r * coverage;
                        g = g * (1 - coverage) + s.g * coverage;
                        b = b * (1 - coverage) + s.b * coverage;
                        a = a + (1 - a) * coverage;
                    }
                }
            }
            store(buffer.at(x, y), std::clamp(r, 0.0, 1.0), std::clamp(g, 0.0, 1.0), std::clamp(b, 0.0, 1.0),
                  a);
        }
    }
}

inline std::unique_ptr<image::PixelBuffer<image::PixelARGB8>> makeARGB8(image::IntegralSize size,
                                                                        Content content)
{
    auto made = std::make_unique<image::PixelBuffer<image::PixelARGB8>>(size);
    auto& buffer = *made;
    const auto q = [](double v) { return static_cast<std::uint8_t>(std::lround(v * 255)); };
    fill(buffer, content, [&](image::PixelARGB8& p, double r, double g, double b, double a) {
        p = {q(a), q(r), q(g), q(b)};
    });
    return made;
}

inline std::unique_ptr<image::PixelBuffer<image::PixelRGBA16>> makeRGBA16(image::IntegralSize size,
                                                                          Content content)
{
    auto made = std::make_unique<image::PixelBuffer<image::PixelRGBA16>>(size);
    auto& buffer = *made;
    const auto q = [](double v) { return static_cast<std::uint16_t>(std::lround(v * 32768)); };
    fill(buffer, content, [&](image::PixelRGBA16& p, double r, double g, double b, double a) {
        p = {q(r), q(g), q(b), q(a)};
    });
    return made;
}

inline std::unique_ptr<image::PixelBuffer<image::PixelRGBA32>> makeRGBA32(image::IntegralSize size,
                                                                          Content content)
{
    auto made = std::make_unique<image::PixelBuffer<image::PixelRGBA32>>(size);
    auto& buffer = *made;
    const auto f = [](double v) { return static_cast<float>(v); };
    fill(buffer, content, [&](image::PixelRGBA32& p, double r, double g, double b, double a) {
        p = {f(r), f(g), f(b), f(a)};
    });
    return made;
}

} // namespace psdkit::bench
