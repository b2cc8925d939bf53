#pragma once
// Small previews of exported images, so that the export page loads quickly whatever the size
// of the document.
#include <cstdint>

#include "Png.hpp"

namespace psdkit::cli {

/// The longest side of a thumbnail in pixels.
inline constexpr std::uint32_t thumbnailSide = 128;

/// `pixels` reduced to fit in thumbnailSide × thumbnailSide (never enlarged), 8 bits per sample,
/// the same channels. Each thumbnail pixel averages the source pixels it covers; colour is
/// weighted by transparency, so that transparent pixels lend no colour to their neighbours.
[[nodiscard]] PngPixels thumbnailPixels(const PngPixels& pixels);

} // namespace psdkit::cli
