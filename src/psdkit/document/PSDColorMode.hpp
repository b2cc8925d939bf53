#pragma once
// The colour mode stored in a file's header.
#include <cstdint>
#include <optional>

namespace psdkit {

enum class PSDColorMode : std::int64_t {
    bitmap = 0,
    grayscale = 1,
    indexed = 2,
    rgb = 3,
    cmyk = 4,
    multichannel = 7,
    duotone = 8,
    lab = 9,
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
