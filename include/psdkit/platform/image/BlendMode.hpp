#pragma once
// BlendMode: how a layer, fill or effect combines with what lies below it. The raw values are
// fixed and part of the interface.
#include <array>
#include <optional>

namespace psdkit::image {

/// The blend modes, with their raw values.
enum class BlendMode : int {
    normal = 1,
    dissolve = 2,
    darken = 3,
    multiply = 4,
    colorBurn = 5,
    linearBurn = 6,
    darkerColor = 7,
    lighten = 8,
    screen = 9,
    colorDodge = 10,
    linearDodge = 11,
    lighterColor = 12,
    overlay = 13,
    softLight = 14,
    hardLight = 15,
    vividLight = 16,
    linearLight = 17,
    pinLight = 18,
    hardMix = 19,
    difference = 20,
    exclusion = 21,
    subtract = 22,
    divide = 23,
    hue = 24,
    saturation = 25,
    color = 26,
    luminosity = 27,
    /// A group whose members are composited directly onto what lies below the group.
    passThrough = 1000,
    /// Paints only where what lies below is transparent.
    behind = 1001,
};

/// Every mode, in raw-value order.
inline constexpr std::array<BlendMode, 29> allBlendModes = {
    BlendMode::normal,      BlendMode::dissolve,   BlendMode::darken,      BlendMode::multiply,
    BlendMode::colorBurn,   BlendMode::linearBurn, BlendMode::darkerColor, BlendMode::lighten,
    BlendMode::screen,      BlendMode::colorDodge, BlendMode::linearDodge, BlendMode::lighterColor,
    BlendMode::overlay,     BlendMode::softLight,  BlendMode::hardLight,   BlendMode::vividLight,
    BlendMode::linearLight, BlendMode::pinLight,   BlendMode::hardMix,     BlendMode::difference,
    BlendMode::exclusion,   BlendMode::subtract,   BlendMode::divide,      BlendMode::hue,
    BlendMode::saturation,  BlendMode::color,      BlendMode::luminosity,  BlendMode::passThrough,
    BlendMode::behind,
};

/// The mode's raw value.
[[nodiscard]] constexpr int rawValue(BlendMode mode) noexcept
{
    return static_cast<int>(mode);
}

/// The mode with raw value `raw`, or nothing when no mode has it.
[[nodiscard]] constexpr std::optional<BlendMode> blendModeFromRawValue(int raw) noexcept
{
    for (const BlendMode mode : allBlendModes) {
        if (rawValue(mode) == raw) {
            return mode;
        }
    }
    return std::nullopt;
}

} // namespace psdkit::image
