#pragma once
// ColorGradient: a named gradient made of colour stops and opacity stops, each list in its own
// order (stops are not sorted by location).
#include "psdkit/Export.hpp"
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "psdkit/platform/image/RGBAPixel.hpp"

namespace psdkit::image {

/// A colour stop: its colour, its place along the gradient (0 to 1) and the midpoint between it and
/// the next stop (0 to 1, 0.5 halfway).
struct PSDKIT_EXPORT ColorStop {
    RGBAPixel color;       ///< The colour at the stop.
    double location = 0;   ///< Place along the gradient, 0 to 1.
    double midpoint = 0.5; ///< Where between this stop and the next the colours mix half and half.
    /// Equal when all fields are.
    friend bool operator==(const ColorStop&, const ColorStop&) = default;
};

/// An opacity stop: its opacity (0 to 1), place and midpoint as for colour stops.
struct PSDKIT_EXPORT OpacityStop {
    double opacity = 1;    ///< The opacity at the stop, 0 to 1.
    double location = 0;   ///< Place along the gradient, 0 to 1.
    double midpoint = 0.5; ///< Where between this stop and the next the opacities mix half and half.
    /// Equal when all fields are.
    friend bool operator==(const OpacityStop&, const OpacityStop&) = default;
};

/// A gradient of at least two colour stops and two opacity stops, optionally named. A plain
/// value; only `make` creates one, so the stop counts always hold.
class PSDKIT_EXPORT ColorGradient {
  public:
    /// A gradient needs at least this many stops of each kind.
    static constexpr std::size_t minimumStopCount = 2;

    /// A gradient without a name from the two stop lists, kept in the order given. Nothing when
    /// either list holds fewer than `minimumStopCount` stops. Never throws except for allocation.
    [[nodiscard]] static std::optional<ColorGradient> make(std::vector<ColorStop> colorStops,
                                                           std::vector<OpacityStop> opacityStops)
    {
        if (colorStops.size() < minimumStopCount || opacityStops.size() < minimumStopCount) {
            return std::nullopt;
        }
        return ColorGradient(std::move(colorStops), std::move(opacityStops));
    }

    /// The gradient's name, or nothing for an unnamed gradient.
    std::optional<std::string> name;

    /// The colour stops, in the order given.
    [[nodiscard]] const std::vector<ColorStop>& colorStops() const noexcept { return colorStops_; }
    /// The opacity stops, in the order given.
    [[nodiscard]] const std::vector<OpacityStop>& opacityStops() const noexcept { return opacityStops_; }

    /// Equal when names and both stop lists are.
    friend bool operator==(const ColorGradient&, const ColorGradient&) = default;

  private:
    ColorGradient(std::vector<ColorStop> colorStops, std::vector<OpacityStop> opacityStops)
        : colorStops_(std::move(colorStops)), opacityStops_(std::move(opacityStops))
    {
    }

    std::vector<ColorStop> colorStops_;
    std::vector<OpacityStop> opacityStops_;
};

} // namespace psdkit::image
