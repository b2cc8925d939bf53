#pragma once
// RGBAPixel: a colour with red, green, blue and alpha components, seen as single-precision values
// normalised to 0 to 1. `RGBAPixelType` names what any pixel type must offer to be used as such a
// colour (the descriptor colour conversions accept every type that satisfies it).
#include "psdkit/Export.hpp"
#include <concepts>

namespace psdkit::image {

/// A pixel type usable as a normalised colour: the four accessors and a constructor from four
/// normalised components (red, green, blue, alpha). What the constructor does with components
/// outside 0 to 1 is the pixel type's own business.
template <typename P>
concept RGBAPixelType = std::constructible_from<P, float, float, float, float> && requires(const P& pixel)
{
    {
        pixel.redFloat()
        } -> std::same_as<float>;
    {
        pixel.greenFloat()
        } -> std::same_as<float>;
    {
        pixel.blueFloat()
        } -> std::same_as<float>;
    {
        pixel.alphaFloat()
        } -> std::same_as<float>;
};

/// A colour held as four single-precision components. Components are stored exactly as given,
/// also outside 0 to 1 (a descriptor may hold such values; nothing is clamped).
struct PSDKIT_EXPORT RGBAPixel {
    float red = 0;   ///< Red, normally 0 to 1.
    float green = 0; ///< Green, normally 0 to 1.
    float blue = 0;  ///< Blue, normally 0 to 1.
    float alpha = 0; ///< Opacity, normally 0 (transparent) to 1 (opaque).

    constexpr RGBAPixel() noexcept = default;
    /// A colour of the four components, stored as given.
    constexpr RGBAPixel(float red_, float green_, float blue_, float alpha_) noexcept
        : red(red_), green(green_), blue(blue_), alpha(alpha_)
    {
    }

    [[nodiscard]] constexpr float redFloat() const noexcept { return red; }     ///< `red`.
    [[nodiscard]] constexpr float greenFloat() const noexcept { return green; } ///< `green`.
    [[nodiscard]] constexpr float blueFloat() const noexcept { return blue; }   ///< `blue`.
    [[nodiscard]] constexpr float alphaFloat() const noexcept { return alpha; } ///< `alpha`.

    /// Equal when all four components are.
    friend constexpr bool operator==(const RGBAPixel&, const RGBAPixel&) = default;
};

static_assert(RGBAPixelType<RGBAPixel>);

} // namespace psdkit::image
