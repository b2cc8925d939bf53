#pragma once
// The colour mode stored in a file's header.
#include <cstdint>
#include <optional>

namespace psdkit {

/// The colour modes a header can name, by their stored values. psdkit reads and writes `rgb`
/// documents only; the others are refused with `readUnsupportedColorMode`.
enum class PSDColorMode : std::int64_t {
    bitmap = 0,       ///< one bit per pixel
    grayscale = 1,    ///< one grey channel
    indexed = 2,      ///< a colour table
    rgb = 3,          ///< red, green, blue
    cmyk = 4,         ///< cyan, magenta, yellow, black
    multichannel = 7, ///< independent channels
    duotone = 8,      ///< grey with ink settings
    lab = 9,          ///< L*a*b*
};

/// The mode for a stored value; nothing for 5, 6, negative values and values above 9.
[[nodiscard]] constexpr std::optional<PSDColorMode> psdColorModeFromRawValue(std::int64_t raw) noexcept
{
    switch (raw) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
    case 7:
    case 8:
    case 9:
        return static_cast<PSDColorMode>(raw);
    default:
        return std::nullopt;
    }
}

} // namespace psdkit
