#pragma once
// The stored composite of a document with transparency is matted against white: each colour
// sample holds alpha × colour + (1 − alpha) × white. Export undoes that so colours are exact
// wherever a pixel is not fully transparent.
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::cli {

/// Replaces every colour sample c of `composite` (ARGB8, RGBA16 or RGBA32) by the colour that,
/// matted against white with the pixel's alpha a, gives c: (c + a − max) × max / a, rounded and
/// kept within 0..max (max being 255, 65535 or 1.0). Fully transparent pixels become
/// transparent black. Grey buffers are left alone.
void unmatteFromWhite(image::PixelBufferType& composite);

/// The reverse, for a composite about to be stored: every colour sample c becomes
/// a × c + (1 − a) × max, rounded. Grey buffers are left alone.
void matteOntoWhite(image::PixelBufferType& composite);

/// True when every pixel of `image` is the same; such a composite shows nothing of the layers.
[[nodiscard]] bool isUniform(const image::PixelBufferType& image);

} // namespace psdkit::cli
