#include "psdkit/render/BlendFunctions.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace psdkit::detail {

using image::BlendMode;

std::optional<BlendMode> blendModeForLayerKey(const PSDFourCharCode& key) noexcept
{
    static const std::array<std::pair<PSDFourCharCode, BlendMode>, 29> keys = {{
        {"pass", BlendMode::passThrough},  {"norm", BlendMode::normal},      {"diss", BlendMode::dissolve},
        {"dark", BlendMode::darken},       {"mul ", BlendMode::multiply},    {"idiv", BlendMode::colorBurn},
        {"lbrn", BlendMode::linearBurn},   {"dkCl", BlendMode::darkerColor}, {"lite", BlendMode::lighten},
        {"scrn", BlendMode::screen},       {"div ", BlendMode::colorDodge},  {"lddg", BlendMode::linearDodge},
        {"lgCl", BlendMode::lighterColor}, {"over", BlendMode::overlay},     {"sLit", BlendMode::softLight},
        {"hLit", BlendMode::hardLight},    {"vLit", BlendMode::vividLight},  {"lLit", BlendMode::linearLight},
        {"pLit", BlendMode::pinLight},     {"hMix", BlendMode::hardMix},     {"diff", BlendMode::difference},
        {"smud", BlendMode::exclusion},    {"fsub", BlendMode::subtract},    {"fdiv", BlendMode::divide},
        {"hue ", BlendMode::hue},          {"sat ", BlendMode::saturation},  {"colr", BlendMode::color},
        {"lum ", BlendMode::luminosity},   {"bhnd", BlendMode::behind},
    }};
    for (const auto& [code, mode] : keys) {
        if (code == key) {
            return mode;
        }
    }
    return std::nullopt;
}

bool isSeparable(BlendMode mode) noexcept
{
    switch (mode) {
    case BlendMode::darkerColor:
    case BlendMode::lighterColor:
    case BlendMode::hue:
    case BlendMode::saturation:
    case BlendMode::color:
    case BlendMode::luminosity:
        return false;
    default:
        return true;
    }
}

namespace {

// Non-separable helpers: luminosity with weights 0.3, 0.59, 0.11.
float lum(const float* c) noexcept
{
    return 0.3f * c[0] + 0.59f * c[1] + 0.11f * c[2];
}

void clipColor(float* c) noexcept
{
    const float l = lum(c);
    const float n = std::min({c[0], c[1], c[2]});
    const float x = std::max({c[0], c[1], c[2]});
    for (int i = 0; i < 3; ++i) {
        if (n < 0.0f && l - n > 0.0f) {
            c[i] = l + (c[i] - l) * l / (l - n);
        }
        if (x > 1.0f && x - l > 0.0f) {
            c[i] = l + (c[i] - l) * (1.0f - l) / (x - l);
        }
    }
}

void setLum(const float* c, float l, float* out) noexcept
{
    const float d = l - lum(c);
    for (int i = 0; i < 3; ++i) {
        out[i] = c[i] + d;
    }
    clipColor(out);
}

float sat(const float* c) noexcept
{
    return std::max({c[0], c[1], c[2]}) - std::min({c[0], c[1], c[2]});
}

// The colour with the hue of `c` and saturation `s`: the largest channel becomes s, the smallest 0
// and the middle one keeps its place between them.
void setSat(const float* c, float s, float* out) noexcept
{
    int maxI = 0;
    int minI = 0;
    for (int i = 1; i < 3; ++i) {
        if (c[i] > c[maxI]) {
            maxI = i;
        }
        if (c[i] < c[minI]) {
            minI = i;
        }
    }
    if (maxI == minI) {
        out[0] = out[1] = out[2] = 0.0f;
        return;
    }
    const int midI = 3 - maxI - minI;
    const float range = c[maxI] - c[minI];
    out[midI] = (c[midI] - c[minI]) * s / range;
    out[maxI] = s;
    out[minI] = 0.0f;
}

} // namespace

void blendColor(BlendMode mode, const float* b, const float* s, float* out) noexcept
{
    switch (mode) {
    // Darker and lighter colour pick the whole colour of lower (higher) luminosity: the saving
    // application's composites follow luminosity, not the channel sum.
    case BlendMode::darkerColor: {
        const float* pick = lum(s) < lum(b) ? s : b;
        std::copy(pick, pick + 3, out);
        return;
    }
    case BlendMode::lighterColor: {
        const float* pick = lum(s) > lum(b) ? s : b;
        std::copy(pick, pick + 3, out);
        return;
    }
    case BlendMode::hue: {
        float t[3];
        setSat(s, sat(b), t);
        setLum(t, lum(b), out);
        return;
    }
    case BlendMode::saturation: {
        float t[3];
        setSat(b, sat(s), t);
        setLum(t, lum(b), out);
        return;
    }
    case BlendMode::color:
        setLum(s, lum(b), out);
        return;
    case BlendMode::luminosity:
        setLum(b, lum(s), out);
        return;
    default:
        for (int i = 0; i < 3; ++i) {
            out[i] = blendChannel(mode, b[i], s[i]);
        }
        return;
    }
}

} // namespace psdkit::detail
