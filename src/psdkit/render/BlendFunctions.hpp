#pragma once
// The blend modes as functions of two colours: the backdrop b (what lies below) and the source s
// (the layer), both unpremultiplied, giving the colour the mode shows where both are opaque.
// Internal to the renderer.
#include <algorithm>
#include <cmath>
#include <optional>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/platform/image/BlendMode.hpp"

namespace psdkit::detail {

/// The mode a layer record's blend key names ("norm", "mul ", "pass", …), or nothing for an
/// unknown key.
[[nodiscard]] std::optional<image::BlendMode> blendModeForLayerKey(const PSDFourCharCode& key) noexcept;

/// True for the modes that treat each channel on its own.
[[nodiscard]] bool isSeparable(image::BlendMode mode) noexcept;

namespace blend {

inline float colorDodge(float b, float s) noexcept
{
    if (b <= 0.0f) {
        return 0.0f;
    }
    return s >= 1.0f ? 1.0f : std::min(1.0f, b / (1.0f - s));
}

inline float colorBurn(float b, float s) noexcept
{
    if (b >= 1.0f) {
        return 1.0f;
    }
    return s <= 0.0f ? 0.0f : 1.0f - std::min(1.0f, (1.0f - b) / s);
}

inline float hardLight(float b, float s) noexcept
{
    return s <= 0.5f ? b * 2.0f * s : b + (2.0f * s - 1.0f) - b * (2.0f * s - 1.0f);
}

// Soft light darkens with s below one half (b − (1 − 2s)·b·(1 − b)) and lightens above it towards
// D(b): √b where b is above one quarter, ((16b − 12)b + 4)b below, which is what the stored
// composites show over dark backdrops (the square root alone is up to 13 levels too light there).
inline float softLight(float b, float s) noexcept
{
    if (s <= 0.5f) {
        return b - (1.0f - 2.0f * s) * b * (1.0f - b);
    }
    const float d = b <= 0.25f ? ((16.0f * b - 12.0f) * b + 4.0f) * b : std::sqrt(b);
    return b + (2.0f * s - 1.0f) * (d - b);
}

// Vivid light is burn with 2s below one half and dodge with 2s − 1 above; the extremes of the
// source decide alone (black burns to black, white dodges to white, whatever the backdrop).
inline float vividLight(float b, float s) noexcept
{
    if (s <= 0.0f) {
        return 0.0f;
    }
    if (s >= 1.0f) {
        return 1.0f;
    }
    return s <= 0.5f ? colorBurn(b, 2.0f * s) : colorDodge(b, 2.0f * (s - 0.5f));
}

} // namespace blend

/// One channel of a separable mode. Normal, dissolve, behind and pass-through give `s`. Inline:
/// it runs once per channel of every pixel a layer of such a mode covers.
inline float blendChannel(image::BlendMode mode, float b, float s) noexcept
{
    switch (mode) {
    case image::BlendMode::darken:
        return std::min(b, s);
    case image::BlendMode::multiply:
        return b * s;
    case image::BlendMode::colorBurn:
        return blend::colorBurn(b, s);
    case image::BlendMode::linearBurn:
        return std::max(0.0f, b + s - 1.0f);
    case image::BlendMode::lighten:
        return std::max(b, s);
    case image::BlendMode::screen:
        return b + s - b * s;
    case image::BlendMode::colorDodge:
        return blend::colorDodge(b, s);
    case image::BlendMode::linearDodge:
        return std::min(1.0f, b + s);
    case image::BlendMode::overlay:
        return blend::hardLight(s, b);
    case image::BlendMode::softLight:
        return blend::softLight(b, s);
    case image::BlendMode::hardLight:
        return blend::hardLight(b, s);
    case image::BlendMode::vividLight:
        return blend::vividLight(b, s);
    case image::BlendMode::linearLight:
        return std::clamp(b + 2.0f * s - 1.0f, 0.0f, 1.0f);
    case image::BlendMode::pinLight:
        return s <= 0.5f ? std::min(b, 2.0f * s) : std::max(b, 2.0f * s - 1.0f);
    case image::BlendMode::hardMix:
        // Hard mix thresholds burn/dodge with 2s: b + s against 1, where a black backdrop stays
        // black and a white one white.
        return (s <= 0.5f ? blend::colorBurn(b, 2.0f * s) : blend::colorDodge(b, 2.0f * s - 1.0f)) >= 0.5f
                   ? 1.0f
                   : 0.0f;
    case image::BlendMode::difference:
        return std::fabs(b - s);
    case image::BlendMode::exclusion:
        return b + s - 2.0f * b * s;
    case image::BlendMode::subtract:
        return std::max(0.0f, b - s);
    case image::BlendMode::divide:
        if (s <= 0.0f) {
            return b <= 0.0f ? 0.0f : 1.0f;
        }
        return std::min(1.0f, b / s);
    default:
        return s;
    }
}

/// The colour of any mode for three channels; `out` may alias neither input.
void blendColor(image::BlendMode mode, const float* b, const float* s, float* out) noexcept;

} // namespace psdkit::detail
