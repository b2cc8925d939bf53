#pragma once
// Text forms shared by the descriptor types' descriptions. Internal to the descriptors.
#include <string>

namespace psdkit::detail {

/// The shortest decimal text that reads back as `value`. An integral value keeps one decimal
/// place ("90.0"); magnitudes below 1e-4 or from 1e16 up use an exponent ("1e+16", "1.5e-05");
/// NaN and infinities are "nan", "inf", "-inf".
[[nodiscard]] std::string shortestDecimalText(double value);

} // namespace psdkit::detail
