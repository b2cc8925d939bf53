#include "psdkit/descriptors/DescriptorTextForms.hpp"

#include <charconv>
#include <cmath>
#include <string_view>

namespace psdkit::detail {

std::string shortestDecimalText(double value)
{
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    const double magnitude = std::fabs(value);
    const bool positional = magnitude == 0.0 || (magnitude >= 1e-4 && magnitude < 1e16);
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value,
                                      positional ? std::chars_format::fixed : std::chars_format::scientific);
    std::string text(buffer, result.ptr);
    if (positional && text.find('.') == std::string::npos) {
        text += ".0";
    }
    return text;
}

} // namespace psdkit::detail
