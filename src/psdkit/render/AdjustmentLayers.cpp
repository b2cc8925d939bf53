#include "psdkit/render/AdjustmentLayers.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "psdkit/render/ColorAdjustments.hpp"

namespace psdkit::detail {

namespace {

int readUInt16(std::span<const std::uint8_t> b, std::size_t offset) noexcept
{
    return (b[offset] << 8) | b[offset + 1];
}

/// A per-channel table of 256 entries (indexed by an 8-bit value, interpolated between entries),
/// applied composite first and then per channel.
class ToneTable final : public Adjustment {
  public:
    /// Tables: composite, red, green, blue.
    std::array<std::array<float, 256>, 4> tables{};
    bool channelFirst = false;

    ToneTable()
    {
        for (auto& table : tables) {
            for (int i = 0; i < 256; ++i) {
                table[static_cast<std::size_t>(i)] = static_cast<float>(i) / 255.0f;
            }
        }
    }
    void apply(float* rgb) const noexcept override
    {
        for (int c = 0; c < 3; ++c) {
            float v = rgb[c];
            if (channelFirst) {
                v = lookup(tables[static_cast<std::size_t>(c + 1)], v);
                v = lookup(tables[0], v);
            } else {
                v = lookup(tables[0], v);
                v = lookup(tables[static_cast<std::size_t>(c + 1)], v);
            }
            rgb[c] = v;
        }
    }

  private:
    static float lookup(const std::array<float, 256>& table, float v) noexcept
    {
        const float position = std::clamp(v, 0.0f, 1.0f) * 255.0f;
        const auto i = static_cast<std::size_t>(position);
        if (i >= 255) {
            return table[255];
        }
        const float f = position - static_cast<float>(i);
        return table[i] + (table[i + 1] - table[i]) * f;
    }
};

class Invert final : public Adjustment {
  public:
    void apply(float* rgb) const noexcept override
    {
        for (int c = 0; c < 3; ++c) {
            rgb[c] = 1.0f - rgb[c];
        }
    }
};

class Threshold final : public Adjustment {
  public:
    explicit Threshold(int level) : level_(static_cast<float>(level)) {}
    void apply(float* rgb) const noexcept override
    {
        const float grey = (0.299f * rgb[0] + 0.587f * rgb[1] + 0.114f * rgb[2]) * 255.0f;
        const float v = std::round(grey) >= level_ ? 1.0f : 0.0f;
        rgb[0] = rgb[1] = rgb[2] = v;
    }

  private:
    float level_;
};

class Posterize final : public Adjustment {
  public:
    explicit Posterize(int levels) : levels_(static_cast<float>(levels)) {}
    void apply(float* rgb) const noexcept override
    {
        for (int c = 0; c < 3; ++c) {
            const float step = std::min(std::floor(std::clamp(rgb[c], 0.0f, 1.0f) * levels_), levels_ - 1.0f);
            rgb[c] = step / (levels_ - 1.0f);
        }
    }

  private:
    float levels_;
};

/// Levels: version, then per channel (composite, red, green, blue, …) input black, input white,
/// output black, output white and gamma × 100, each 16-bit.
std::shared_ptr<const Adjustment> levels(std::span<const std::uint8_t> body)
{
    if (body.size() < 2 + 4 * 10) {
        return nullptr;
    }
    auto table = std::make_shared<ToneTable>();
    table->channelFirst = true;
    for (std::size_t c = 0; c < 4; ++c) {
        const std::size_t at = 2 + c * 10;
        const double inBlack = readUInt16(body, at) / 255.0;
        const double inWhite = readUInt16(body, at + 2) / 255.0;
        const double outBlack = readUInt16(body, at + 4) / 255.0;
        const double outWhite = readUInt16(body, at + 6) / 255.0;
        const double gamma = std::clamp(readUInt16(body, at + 8) / 100.0, 0.01, 9.99);
        for (int i = 0; i < 256; ++i) {
            double t = inWhite > inBlack ? (i / 255.0 - inBlack) / (inWhite - inBlack)
                                         : (i / 255.0 >= inBlack ? 1 : 0);
            t = std::pow(std::clamp(t, 0.0, 1.0), 1.0 / gamma);
            table->tables[c][static_cast<std::size_t>(i)] =
                static_cast<float>(outBlack + t * (outWhite - outBlack));
        }
    }
    return table;
}

/// A smooth curve through `points` (input, output; 0…255, sorted by input), sampled at 0…255:
/// a natural cubic spline, flat beyond the end points.
std::array<float, 256> curveTable(std::vector<std::pair<double, double>> points)
{
    std::array<float, 256> out{};
    const std::size_t n = points.size();
    std::vector<double> second(n, 0.0);
    if (n > 2) {
        // Solve for the second derivatives of a natural spline (tridiagonal system).
        std::vector<double> u(n, 0.0);
        for (std::size_t i = 1; i + 1 < n; ++i) {
            const double hPrev = points[i].first - points[i - 1].first;
            const double hNext = points[i + 1].first - points[i].first;
            const double sig = hPrev / (hPrev + hNext);
            const double p = sig * second[i - 1] + 2.0;
            second[i] = (sig - 1.0) / p;
            const double slope = (points[i + 1].second - points[i].second) / hNext -
                                 (points[i].second - points[i - 1].second) / hPrev;
            u[i] = (6.0 * slope / (hPrev + hNext) - sig * u[i - 1]) / p;
        }
        second[n - 1] = 0.0;
        for (std::size_t k = n - 1; k-- > 0;) {
            second[k] = second[k] * second[k + 1] + u[k];
        }
    }
    for (int x = 0; x < 256; ++x) {
        double y;
        if (x <= points.front().first) {
            y = points.front().second;
        } else if (x >= points.back().first) {
            y = points.back().second;
        } else {
            std::size_t hi = 1;
            while (points[hi].first < x) {
                ++hi;
            }
            const std::size_t lo = hi - 1;
            const double h = points[hi].first - points[lo].first;
            const double a = (points[hi].first - x) / h;
            const double b = (x - points[lo].first) / h;
            y = a * points[lo].second + b * points[hi].second +
                ((a * a * a - a) * second[lo] + (b * b * b - b) * second[hi]) * h * h / 6.0;
        }
        out[static_cast<std::size_t>(x)] = static_cast<float>(std::clamp(y, 0.0, 255.0) / 255.0);
    }
    return out;
}

/// Curves: a filler byte, version, a bit set of the channels stored (bit 0 composite, then red,
/// green, blue), then per stored channel a point count and points as output, input (16-bit each).
std::shared_ptr<const Adjustment> curves(std::span<const std::uint8_t> body)
{
    if (body.size() < 7) {
        return nullptr;
    }
    const std::uint32_t channels = (std::uint32_t{body[3]} << 24) | (std::uint32_t{body[4]} << 16) |
                                   (std::uint32_t{body[5]} << 8) | body[6];
    auto table = std::make_shared<ToneTable>();
    std::size_t at = 7;
    for (std::size_t c = 0; c < 32; ++c) {
        if ((channels & (1u << c)) == 0) {
            continue;
        }
        if (at + 2 > body.size()) {
            return nullptr;
        }
        const auto count = static_cast<std::size_t>(readUInt16(body, at));
        at += 2;
        if (count < 2 || count > 19 || at + count * 4 > body.size()) {
            return nullptr;
        }
        std::vector<std::pair<double, double>> points;
        for (std::size_t i = 0; i < count; ++i, at += 4) {
            points.emplace_back(readUInt16(body, at + 2), readUInt16(body, at));
        }
        std::sort(points.begin(), points.end());
        for (std::size_t i = 1; i < points.size(); ++i) {
            if (points[i].first <= points[i - 1].first) {
                return nullptr;
            }
        }
        if (c < 4) {
            table->tables[c] = curveTable(std::move(points));
        }
    }
    return table;
}

int readInt16(std::span<const std::uint8_t> b, std::size_t offset) noexcept
{
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(readUInt16(b, offset)));
}

void rgbToHsl(const float* rgb, float& h, float& s, float& l) noexcept
{
    const float mx = std::max({rgb[0], rgb[1], rgb[2]});
    const float mn = std::min({rgb[0], rgb[1], rgb[2]});
    l = (mx + mn) / 2.0f;
    const float d = mx - mn;
    if (d <= 0.0f) {
        h = s = 0.0f;
        return;
    }
    s = l > 0.5f ? d / (2.0f - mx - mn) : d / (mx + mn);
    if (mx == rgb[0]) {
        h = (rgb[1] - rgb[2]) / d + (rgb[1] < rgb[2] ? 6.0f : 0.0f);
    } else if (mx == rgb[1]) {
        h = (rgb[2] - rgb[0]) / d + 2.0f;
    } else {
        h = (rgb[0] - rgb[1]) / d + 4.0f;
    }
    h /= 6.0f;
}

float hueToChannel(float p, float q, float t) noexcept
{
    t -= std::floor(t);
    if (t < 1.0f / 6.0f) {
        return p + (q - p) * 6.0f * t;
    }
    if (t < 0.5f) {
        return q;
    }
    if (t < 2.0f / 3.0f) {
        return p + (q - p) * (2.0f / 3.0f - t) * 6.0f;
    }
    return p;
}

void hslToRgb(float h, float s, float l, float* rgb) noexcept
{
    if (s <= 0.0f) {
        rgb[0] = rgb[1] = rgb[2] = l;
        return;
    }
    const float q = l < 0.5f ? l * (1.0f + s) : l + s - l * s;
    const float p = 2.0f * l - q;
    rgb[0] = hueToChannel(p, q, h + 1.0f / 3.0f);
    rgb[1] = hueToChannel(p, q, h);
    rgb[2] = hueToChannel(p, q, h - 1.0f / 3.0f);
}

/// Hue/saturation, master settings (or colourise): hue turned by degrees, saturation and
/// lightness moved towards their ends by percent. The per-range settings are not applied.
class HueSaturation final : public Adjustment {
  public:
    HueSaturation(bool colorize, int hue, int saturation, int lightness)
        : colorize_(colorize), hue_(static_cast<float>(hue) / 360.0f),
          saturation_(static_cast<float>(saturation) / 100.0f),
          lightness_(static_cast<float>(lightness) / 100.0f)
    {
    }
    void apply(float* rgb) const noexcept override
    {
        float h, s, l;
        rgbToHsl(rgb, h, s, l);
        if (colorize_) {
            h = hue_;
            s = saturation_;
        } else {
            h += hue_;
            s = saturation_ >= 0 ? s + (1.0f - s) * saturation_ * s : s * (1.0f + saturation_);
            s = std::clamp(s, 0.0f, 1.0f);
        }
        hslToRgb(h, s, l, rgb);
        for (int c = 0; c < 3; ++c) {
            rgb[c] = lightness_ >= 0 ? rgb[c] + (1.0f - rgb[c]) * lightness_ : rgb[c] * (1.0f + lightness_);
        }
    }

  private:
    bool colorize_;
    float hue_, saturation_, lightness_;
};

/// Hue/saturation: version, colourise flag and a filler byte, the colourise hue, saturation and
/// lightness, then the master hue, saturation and lightness (signed 16-bit each).
std::shared_ptr<const Adjustment> hueSaturation(std::span<const std::uint8_t> body)
{
    if (body.size() < 16) {
        return nullptr;
    }
    const bool colorize = body[2] != 0;
    const std::size_t at = colorize ? 4 : 10;
    return std::make_shared<HueSaturation>(colorize, readInt16(body, at), readInt16(body, at + 2),
                                           std::clamp(readInt16(body, at + 4), -100, 100));
}

} // namespace

std::shared_ptr<const Adjustment> makeAdjustment(const PSDLayerWrapper& layer, PSDAdjustmentLayerType type)
{
    const std::span<const std::uint8_t> body = findLayerBlock(layer, blockKey(type));
    switch (type) {
    case PSDAdjustmentLayerType::invert:
        return std::make_shared<Invert>();
    case PSDAdjustmentLayerType::threshold:
        return body.size() >= 2 ? std::make_shared<Threshold>(std::clamp(readUInt16(body, 0), 1, 255))
                                : nullptr;
    case PSDAdjustmentLayerType::posterize:
        return body.size() >= 2 ? std::make_shared<Posterize>(std::clamp(readUInt16(body, 0), 2, 255))
                                : nullptr;
    case PSDAdjustmentLayerType::levels:
        return levels(body);
    case PSDAdjustmentLayerType::curves:
        return curves(body);
    case PSDAdjustmentLayerType::hueSaturation:
        return hueSaturation(body);
    default:
        return makeColorAdjustment(layer, type);
    }
}

} // namespace psdkit::detail
