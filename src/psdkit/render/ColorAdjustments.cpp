// The colour adjustments beyond the tone tables: brightness/contrast, exposure, vibrance, colour
// balance, black & white, channel mixer, photo filter, selective colour and gradient map. Each
// reads its own settings block; the formulas are written from the adjustments' published
// descriptions (docs/decisions.md, "Rendering", says where they are approximations).
#include "psdkit/render/ColorAdjustments.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/render/FillLayers.hpp"

namespace psdkit::detail {

namespace {

int readInt16(std::span<const std::uint8_t> b, std::size_t at) noexcept
{
    return static_cast<std::int16_t>(static_cast<std::uint16_t>((b[at] << 8) | b[at + 1]));
}

std::uint32_t readUInt32(std::span<const std::uint8_t> b, std::size_t at) noexcept
{
    return (std::uint32_t{b[at]} << 24) | (std::uint32_t{b[at + 1]} << 16) | (std::uint32_t{b[at + 2]} << 8) |
           b[at + 3];
}

float readFloat32(std::span<const std::uint8_t> b, std::size_t at) noexcept
{
    const std::uint32_t bits = readUInt32(b, at);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) ? value : 0.0f;
}

float luminosity(const float* rgb) noexcept
{
    return 0.3f * rgb[0] + 0.59f * rgb[1] + 0.11f * rgb[2];
}

/// Moves all three channels by the same amount so that the luminosity becomes `target`.
void keepLuminosity(float* rgb, float target) noexcept
{
    const float shift = target - luminosity(rgb);
    for (int c = 0; c < 3; ++c) {
        rgb[c] = std::clamp(rgb[c] + shift, 0.0f, 1.0f);
    }
}

/// A number item of a descriptor (integer, double or unit float), or `fallback`.
double number(const PSDDescriptor& d, const UnifiedStringValue& key, double fallback)
{
    if (const auto* v = d.valueAs<std::int32_t>(key)) {
        return *v;
    }
    if (const auto* v = d.valueAs<double>(key)) {
        return *v;
    }
    if (const auto* v = d.valueAs<PSDUnitFloat>(key)) {
        return v->value;
    }
    return fallback;
}

UnifiedStringValue code(const char* text)
{
    return PSDFourCharCode(std::string(text));
}

/// A function of one colour as an adjustment.
template <typename Function> class ColorFunction final : public Adjustment {
  public:
    explicit ColorFunction(Function function) : function_(std::move(function)) {}
    void apply(float* rgb) const noexcept override { function_(rgb); }

  private:
    Function function_;
};

template <typename Function> std::shared_ptr<const Adjustment> adjustment(Function function)
{
    return std::make_shared<ColorFunction<Function>>(std::move(function));
}

/// Brightness/contrast from the descriptor ("CgEd": "Brgh" −150…150, "Cntr" −50…100,
/// "useLegacy"), else the block's legacy values. Brightness moves the mid-tones and keeps black and
/// white (legacy: shifts every value); contrast scales the distance from mid grey.
std::shared_ptr<const Adjustment> brightnessContrast(const PSDLayerWrapper& layer)
{
    double brightness = 0, contrast = 0;
    bool legacy = true;
    if (const auto settings = versionedDescriptor(findLayerBlock(layer, PSDFourCharCode("CgEd")))) {
        brightness = number(*settings, code("Brgh"), 0);
        contrast = number(*settings, code("Cntr"), 0);
        const bool* useLegacy = settings->valueAs<bool>(UnifiedStringValue::string("useLegacy"));
        legacy = useLegacy && *useLegacy;
    } else {
        const auto body = findLayerBlock(layer, PSDFourCharCode("brit"));
        if (body.size() < 4) {
            return nullptr;
        }
        brightness = readInt16(body, 0);
        contrast = readInt16(body, 2);
    }
    const auto b = static_cast<float>(std::clamp(brightness, -150.0, 150.0));
    const auto k = static_cast<float>(1.0 + std::clamp(contrast, -100.0, 100.0) / 100.0);
    return adjustment([b, k, legacy](float* rgb) {
        for (int c = 0; c < 3; ++c) {
            float v = std::clamp(rgb[c], 0.0f, 1.0f);
            v = legacy ? v + b / 255.0f : std::pow(v, std::pow(2.0f, -b / 100.0f));
            rgb[c] = std::clamp(0.5f + (std::clamp(v, 0.0f, 1.0f) - 0.5f) * k, 0.0f, 1.0f);
        }
    });
}

/// Exposure ("expA": version, exposure in stops, offset, gamma; 32-bit floats):
/// (v · 2^exposure + offset)^(1/gamma).
std::shared_ptr<const Adjustment> exposure(std::span<const std::uint8_t> body)
{
    if (body.size() < 14) {
        return nullptr;
    }
    const float scale = std::exp2(std::clamp(readFloat32(body, 2), -20.0f, 20.0f));
    const float offset = readFloat32(body, 6);
    const float inverseGamma = 1.0f / std::clamp(readFloat32(body, 10), 0.01f, 9.99f);
    return adjustment([scale, offset, inverseGamma](float* rgb) {
        for (int c = 0; c < 3; ++c) {
            rgb[c] = std::pow(std::max(rgb[c] * scale + offset, 0.0f), inverseGamma);
        }
    });
}

/// Vibrance ("vibA" descriptor: "vibrance" and saturation "Strt", −100…100). Saturation scales
/// every colour's distance from its grey; vibrance does so more for weakly saturated colours.
std::shared_ptr<const Adjustment> vibrance(std::span<const std::uint8_t> body)
{
    const auto settings = versionedDescriptor(body);
    if (!settings) {
        return nullptr;
    }
    const auto vib = static_cast<float>(
        std::clamp(number(*settings, UnifiedStringValue::string("vibrance"), 0), -100.0, 100.0) / 100.0);
    const auto sat =
        static_cast<float>(std::clamp(number(*settings, code("Strt"), 0), -100.0, 100.0) / 100.0);
    return adjustment([vib, sat](float* rgb) {
        const float grey = luminosity(rgb);
        const float chroma = std::max({rgb[0], rgb[1], rgb[2]}) - std::min({rgb[0], rgb[1], rgb[2]});
        const float factor = (1.0f + sat) * (1.0f + vib * (1.0f - std::clamp(chroma, 0.0f, 1.0f)));
        for (int c = 0; c < 3; ++c) {
            rgb[c] = std::clamp(grey + (rgb[c] - grey) * factor, 0.0f, 1.0f);
        }
    });
}

/// Colour balance ("blnc": shadows, mid-tones, highlights, each cyan–red, magenta–green,
/// yellow–blue −100…100; then preserve luminosity). Each range moves the channels by value / 200,
/// weighted by how much the colour's lightness lies in the range.
std::shared_ptr<const Adjustment> colorBalance(std::span<const std::uint8_t> body)
{
    if (body.size() < 19) {
        return nullptr;
    }
    std::array<std::array<float, 3>, 3> shifts{};
    for (std::size_t range = 0; range < 3; ++range) {
        for (std::size_t c = 0; c < 3; ++c) {
            shifts[range][c] =
                static_cast<float>(std::clamp(readInt16(body, (range * 3 + c) * 2), -100, 100)) / 200.0f;
        }
    }
    const bool preserve = body[18] != 0;
    return adjustment([shifts, preserve](float* rgb) {
        const float lightness = (std::max({rgb[0], rgb[1], rgb[2]}) + std::min({rgb[0], rgb[1], rgb[2]})) / 2;
        const float lum = luminosity(rgb);
        const float shadows = std::clamp(1.0f - 2.0f * lightness, 0.0f, 1.0f);
        const float highlights = std::clamp(2.0f * lightness - 1.0f, 0.0f, 1.0f);
        const float weights[3] = {shadows, 1.0f - shadows - highlights, highlights};
        for (std::size_t c = 0; c < 3; ++c) {
            float v = rgb[c];
            for (std::size_t range = 0; range < 3; ++range) {
                v += shifts[range][c] * weights[range];
            }
            rgb[c] = std::clamp(v, 0.0f, 1.0f);
        }
        if (preserve) {
            keepLuminosity(rgb, lum);
        }
    });
}

/// Black & white ("blwh" descriptor: percentages for red, yellow, green, cyan, blue, magenta, and an
/// optional tint). The grey is the smallest channel, plus the part shared by the two largest
/// channels weighted by their secondary colour, plus the largest channel's own excess weighted
/// by its primary.
std::shared_ptr<const Adjustment> blackAndWhite(std::span<const std::uint8_t> body)
{
    const auto settings = versionedDescriptor(body);
    if (!settings) {
        return nullptr;
    }
    const auto weight = [&](const char* key, double fallback) {
        return static_cast<float>(std::clamp(number(*settings, code(key), fallback), -200.0, 300.0) / 100.0);
    };
    // Indexed by primary (red, green, blue) and by secondary (red+green yellow, green+blue cyan,
    // blue+red magenta).
    const std::array<float, 3> primary = {weight("Rd  ", 40), weight("Grn ", 40), weight("Bl  ", 20)};
    const std::array<float, 3> secondary = {weight("Yllw", 60), weight("Cyn ", 60), weight("Mgnt", 80)};
    std::optional<std::array<float, 3>> tint;
    const bool* useTint = settings->valueAs<bool>(UnifiedStringValue::string("useTint"));
    const PSDDescriptor* tintColor = settings->descriptorValue(UnifiedStringValue::string("tintColor"));
    if (useTint && *useTint && tintColor) {
        const auto pixel = rgbaPixelFromPSDDescriptor(*tintColor);
        tint = std::array<float, 3>{pixel.red, pixel.green, pixel.blue};
    }
    return adjustment([primary, secondary, tint](float* rgb) {
        std::array<int, 3> order = {0, 1, 2}; // channel indices, largest first
        std::sort(order.begin(), order.end(), [rgb](int a, int b) { return rgb[a] > rgb[b]; });
        const int largest = order[0], middle = order[1];
        // The secondary of two primaries i and j: yellow (0,1), cyan (1,2), magenta (2,0).
        const int pair = (largest + middle == 1) ? 0 : (largest + middle == 3) ? 1 : 2;
        const float grey = rgb[order[2]] +
                           (rgb[middle] - rgb[order[2]]) * secondary[static_cast<std::size_t>(pair)] +
                           (rgb[largest] - rgb[middle]) * primary[static_cast<std::size_t>(largest)];
        const float g = std::clamp(grey, 0.0f, 1.0f);
        for (int c = 0; c < 3; ++c) {
            rgb[c] = g;
        }
        if (tint) {
            // The tint's colour at the grey's luminosity.
            const float t[3] = {(*tint)[0], (*tint)[1], (*tint)[2]};
            for (int c = 0; c < 3; ++c) {
                rgb[c] = t[c];
            }
            keepLuminosity(rgb, g);
        }
    });
}

/// Channel mixer ("mixr": version, monochrome flag, then per output channel the red, green and
/// blue percentages, one unused and a constant, 16-bit each).
std::shared_ptr<const Adjustment> channelMixer(std::span<const std::uint8_t> body)
{
    if (body.size() < 4 + 3 * 10) {
        return nullptr;
    }
    const bool monochrome = readInt16(body, 2) != 0;
    std::array<std::array<float, 4>, 3> mix{};
    for (std::size_t out = 0; out < 3; ++out) {
        const std::size_t at = 4 + (monochrome ? 0 : out) * 10;
        for (std::size_t in = 0; in < 3; ++in) {
            mix[out][in] = static_cast<float>(readInt16(body, at + in * 2)) / 100.0f;
        }
        mix[out][3] = static_cast<float>(readInt16(body, at + 8)) / 100.0f;
    }
    return adjustment([mix](float* rgb) {
        float out[3];
        for (std::size_t c = 0; c < 3; ++c) {
            out[c] = std::clamp(mix[c][0] * rgb[0] + mix[c][1] * rgb[1] + mix[c][2] * rgb[2] + mix[c][3],
                                0.0f, 1.0f);
        }
        std::copy(out, out + 3, rgb);
    });
}

/// sRGB components (0…1) of a CIE L*a*b* colour (D50 white, adapted to D65 by Bradford).
std::array<float, 3> rgbFromLab(double l, double a, double b)
{
    const double fy = (l + 16) / 116, fx = fy + a / 500, fz = fy - b / 200;
    const auto finv = [](double t) {
        return t > 6.0 / 29 ? t * t * t : 3 * (6.0 / 29) * (6.0 / 29) * (t - 4.0 / 29);
    };
    const double x = 0.9642 * finv(fx), y = finv(fy), z = 0.8249 * finv(fz);
    const double r = 3.1338561 * x - 1.6168667 * y - 0.4906146 * z;
    const double g = -0.9787684 * x + 1.9161415 * y + 0.0334540 * z;
    const double bl = 0.0719453 * x - 0.2289914 * y + 1.4052427 * z;
    const auto encode = [](double v) {
        v = std::clamp(v, 0.0, 1.0);
        return static_cast<float>(v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055);
    };
    return {encode(r), encode(g), encode(bl)};
}

/// Photo filter ("phfl" version 2: colour space and four 16-bit components; version 3: L*a*b* as
/// three 32-bit values; then density in percent and preserve luminosity). The colour multiplies
/// the pixel, mixed in by the density.
std::shared_ptr<const Adjustment> photoFilter(std::span<const std::uint8_t> body)
{
    if (body.size() < 2) {
        return nullptr;
    }
    const int version = readInt16(body, 0);
    std::array<float, 3> color{};
    std::size_t at = 0;
    if (version == 2 && body.size() >= 17) {
        const int space = readInt16(body, 2);
        if (space == 0) {
            for (std::size_t c = 0; c < 3; ++c) {
                color[c] =
                    static_cast<float>(static_cast<std::uint16_t>(readInt16(body, 4 + c * 2))) / 65535.0f;
            }
        } else if (space == 7) {
            color = rgbFromLab(readInt16(body, 4) / 100.0, readInt16(body, 6) / 100.0,
                               readInt16(body, 8) / 100.0);
        } else {
            return nullptr;
        }
        at = 12;
    } else if (version == 3 && body.size() >= 19) {
        color = rgbFromLab(static_cast<std::int32_t>(readUInt32(body, 2)) / 100.0,
                           static_cast<std::int32_t>(readUInt32(body, 6)) / 100.0,
                           static_cast<std::int32_t>(readUInt32(body, 10)) / 100.0);
        at = 14;
    } else {
        return nullptr;
    }
    const float density = std::clamp(static_cast<float>(readUInt32(body, at)) / 100.0f, 0.0f, 1.0f);
    const bool preserve = body[at + 4] != 0;
    return adjustment([color, density, preserve](float* rgb) {
        const float lum = luminosity(rgb);
        for (std::size_t c = 0; c < 3; ++c) {
            rgb[c] += (rgb[c] * color[c] - rgb[c]) * density;
        }
        if (preserve) {
            keepLuminosity(rgb, lum);
        }
    });
}

/// Selective colour ("selc": version, method (0 relative, 1 absolute), then ten records of cyan,
/// magenta, yellow and black percentages: one unused, then reds, yellows, greens, cyans, blues,
/// magentas, whites, neutrals, blacks). Each range acts in proportion to how much of it a colour
/// holds; cyan, magenta and yellow lower red, green and blue, black lowers all three.
std::shared_ptr<const Adjustment> selectiveColor(std::span<const std::uint8_t> body)
{
    if (body.size() < 4 + 10 * 8) {
        return nullptr;
    }
    const bool absolute = readInt16(body, 2) != 0;
    std::array<std::array<float, 4>, 9> ranges{};
    for (std::size_t range = 0; range < 9; ++range) {
        for (std::size_t k = 0; k < 4; ++k) {
            ranges[range][k] =
                static_cast<float>(std::clamp(readInt16(body, 4 + (range + 1) * 8 + k * 2), -100, 100)) /
                100.0f;
        }
    }
    return adjustment([ranges, absolute](float* rgb) {
        const float mx = std::max({rgb[0], rgb[1], rgb[2]});
        const float mn = std::min({rgb[0], rgb[1], rgb[2]});
        const float mid = rgb[0] + rgb[1] + rgb[2] - mx - mn;
        float amounts[9] = {};
        // Primaries (reds, greens, blues) by the largest channel's lead; secondaries (yellows,
        // cyans, magentas) by the lead of the two largest over the smallest.
        const int largest = rgb[0] >= rgb[1] && rgb[0] >= rgb[2] ? 0 : rgb[1] >= rgb[2] ? 1 : 2;
        const int smallest = rgb[0] < rgb[1] && rgb[0] < rgb[2] ? 0 : rgb[1] < rgb[2] ? 1 : 2;
        amounts[largest * 2] = mx - mid;                  // reds 0, greens 2, blues 4
        amounts[((smallest + 1) % 3) * 2 + 1] = mid - mn; // yellows 1 (no blue), cyans 3, magentas 5
        amounts[6] = std::max(0.0f, 2.0f * mn - 1.0f);    // whites
        amounts[7] = 1.0f - (std::fabs(mx - 0.5f) + std::fabs(mn - 0.5f)); // neutrals
        amounts[8] = std::max(0.0f, 1.0f - 2.0f * mx);                     // blacks
        float out[3] = {rgb[0], rgb[1], rgb[2]};
        for (std::size_t range = 0; range < 9; ++range) {
            const float amount = std::clamp(amounts[range], 0.0f, 1.0f);
            if (amount <= 0.0f) {
                continue;
            }
            for (std::size_t c = 0; c < 3; ++c) {
                // Ink of this channel's opposite colour plus black, relative to what is there.
                const float ink = ranges[range][c] + ranges[range][3];
                const float scale = absolute ? 1.0f : 1.0f - rgb[c];
                out[c] -= ink * scale * amount;
            }
        }
        for (std::size_t c = 0; c < 3; ++c) {
            rgb[c] = std::clamp(out[c], 0.0f, 1.0f);
        }
    });
}

/// Gradient map ("grdm": version, reverse and dither flags, the name, the colour stops (location
/// and midpoint 32-bit, colour space and four 16-bit components, two filler bytes), the opacity
/// stops (location, midpoint, opacity 0…255), then settings not used here). Each colour becomes
/// the gradient's colour at its luminosity.
std::shared_ptr<const Adjustment> gradientMap(std::span<const std::uint8_t> body)
{
    if (body.size() < 8) {
        return nullptr;
    }
    const bool reversed = body[2] != 0;
    const std::uint32_t nameLength = readUInt32(body, 4);
    if (nameLength > (body.size() - 8) / 2) {
        return nullptr;
    }
    std::size_t at = 8 + std::size_t{nameLength} * 2;
    std::vector<image::ColorStop> colors;
    std::vector<image::OpacityStop> opacities;
    if (at + 2 > body.size()) {
        return nullptr;
    }
    const auto colorCount = static_cast<std::size_t>(readInt16(body, at) & 0xFFFF);
    at += 2;
    if (colorCount > (body.size() - at) / 20) {
        return nullptr;
    }
    for (std::size_t i = 0; i < colorCount; ++i, at += 20) {
        if (readInt16(body, at + 8) != 0) {
            return nullptr; // only RGB stops
        }
        image::ColorStop stop;
        stop.location = readUInt32(body, at) / 4096.0;
        stop.midpoint = readUInt32(body, at + 4) / 100.0;
        stop.color = image::RGBAPixel(static_cast<std::uint16_t>(readInt16(body, at + 10)) / 65535.0f,
                                      static_cast<std::uint16_t>(readInt16(body, at + 12)) / 65535.0f,
                                      static_cast<std::uint16_t>(readInt16(body, at + 14)) / 65535.0f, 1.0f);
        colors.push_back(stop);
    }
    if (at + 2 > body.size()) {
        return nullptr;
    }
    const auto opacityCount = static_cast<std::size_t>(readInt16(body, at) & 0xFFFF);
    at += 2;
    if (opacityCount > (body.size() - at) / 10) {
        return nullptr;
    }
    for (std::size_t i = 0; i < opacityCount; ++i, at += 10) {
        opacities.push_back({static_cast<std::uint16_t>(readInt16(body, at + 8)) / 255.0,
                             readUInt32(body, at) / 4096.0, readUInt32(body, at + 4) / 100.0});
    }
    const auto gradient = image::ColorGradient::make(std::move(colors), std::move(opacities));
    if (!gradient) {
        return nullptr;
    }
    auto table = std::make_shared<const GradientTable>(*gradient, reversed, 0.0, 0);
    return adjustment([table](float* rgb) {
        const float* c = table->at(luminosity(rgb));
        std::copy(c, c + 3, rgb);
    });
}

} // namespace

std::shared_ptr<const Adjustment> makeColorAdjustment(const PSDLayerWrapper& layer,
                                                      PSDAdjustmentLayerType type)
{
    const std::span<const std::uint8_t> body = findLayerBlock(layer, blockKey(type));
    switch (type) {
    case PSDAdjustmentLayerType::brightnessContrast:
        return brightnessContrast(layer);
    case PSDAdjustmentLayerType::exposure:
        return exposure(body);
    case PSDAdjustmentLayerType::vibrance:
        return vibrance(body);
    case PSDAdjustmentLayerType::colorBalance:
        return colorBalance(body);
    case PSDAdjustmentLayerType::blackAndWhite:
        return blackAndWhite(body);
    case PSDAdjustmentLayerType::channelMixer:
        return channelMixer(body);
    case PSDAdjustmentLayerType::photoFilter:
        return photoFilter(body);
    case PSDAdjustmentLayerType::selectiveColor:
        return selectiveColor(body);
    case PSDAdjustmentLayerType::gradientMap:
        return gradientMap(body);
    default:
        return nullptr;
    }
}

} // namespace psdkit::detail
