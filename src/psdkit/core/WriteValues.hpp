#pragma once
// Conversions of model values to the format's fields on writing, refusing values that do not fit
// with writeParameterError instead of wrapping or invoking undefined behaviour.
#include <cmath>
#include <cstdint>

#include "psdkit/core/PSDError.hpp"

namespace psdkit::detail {

/// A fraction 0.0…1.0 as the byte value × 255, cut toward zero (0.5 gives 127).
/// Throws PSDException(writeParameterError) for NaN or values outside 0…1.
[[nodiscard]] inline std::int64_t fractionByte(double value)
{
    if (!(value >= 0.0 && value <= 1.0)) {
        throw PSDException(PSDError::writeParameterError);
    }
    return static_cast<std::int64_t>(value * 255.0);
}

} // namespace psdkit::detail
