#pragma once
// PSDUnitFloat: a descriptor number with a unit. In a file the unit is the four-character code
// that precedes the 8-byte double.
#include "psdkit/Export.hpp"
#include <optional>
#include <string>

#include "psdkit/core/PSDFourCharCode.hpp"

namespace psdkit {

/// A number and its unit. A plain value.
struct PSDKIT_EXPORT PSDUnitFloat {
    /// The six units a file can name.
    enum class Unit {
        angle,      ///< "#Ang", degrees
        resolution, ///< "#Rsl"
        distance,   ///< "#Rlt"
        none,       ///< "#Nne"
        percent,    ///< "#Prc"
        pixels,     ///< "#Pxl"
    };

    Unit unit = Unit::none; ///< The unit.
    double value = 0;       ///< The number, in that unit.

    /// The unit's code in a file, such as "#Prc".
    [[nodiscard]] static PSDFourCharCode unitCode(Unit unit);
    /// The unit written with `code`, or nothing for a code outside the six units.
    [[nodiscard]] static std::optional<Unit> unitFromCode(const PSDFourCharCode& code);

    /// The number as the shortest decimal text that reads back to the same double ("90.0", "0.1")
    /// followed by the unit's suffix: " °", " dpi", " dist", " none", " %" or " Px".
    /// Magnitudes from 1e-4 up to 1e16 are written without exponent; others as in "1e+16";
    /// non-finite values as "nan", "inf" and "-inf".
    [[nodiscard]] std::string debugDescription() const;

    /// Equal when unit and number are (NaN is unequal to itself).
    friend bool operator==(const PSDUnitFloat&, const PSDUnitFloat&) = default;
};

} // namespace psdkit
