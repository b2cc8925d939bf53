#pragma once
// Colours as descriptors hold them: class "RGBC" with "Rd  ", "Grn ", "Bl  " as doubles 0 to 255,
// and, when read, class "Grsc" with "Gry " as a double 0 to 100. Components are converted in
// single precision: a stored double is narrowed to a float and divided by 255 (or 100) as a float;
// a written component is the float product component × 255, widened to double, so that every
// whole value 0 to 255 survives a round trip exactly. Alpha is not stored: a colour read has
// alpha 1, and the alpha of a colour written is dropped.
#include "psdkit/Export.hpp"
#include <memory>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/platform/image/RGBAPixel.hpp"

namespace psdkit {

/// The colour `descriptor` holds, with normalised components (not clamped: "Rd  " 300 gives a red
/// of about 1.18). Throws PSDException: readUnsupportedContentType when the class ID is not the
/// code "RGBC" or "Grsc"; readCorruptFile when a component is missing or not a double.
[[nodiscard]] PSDKIT_EXPORT image::RGBAPixel rgbaPixelFromPSDDescriptor(const PSDDescriptor& descriptor);

/// The same, built as any pixel type that offers the normalised colour interface.
template <image::RGBAPixelType Pixel>
[[nodiscard]] Pixel pixelFromPSDDescriptor(const PSDDescriptor& descriptor)
{
    const image::RGBAPixel color = rgbaPixelFromPSDDescriptor(descriptor);
    return Pixel(color.red, color.green, color.blue, color.alpha);
}

/// A new top-level "RGBC" descriptor for normalised red, green and blue. Never fails.
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PSDDescriptor> rgbColorPSDDescriptor(float red, float green,
                                                                                 float blue);

/// A new top-level "RGBC" descriptor for the colour of `pixel` (its alpha is not stored).
template <image::RGBAPixelType Pixel>
[[nodiscard]] std::shared_ptr<PSDDescriptor> psdDescriptor(const Pixel& pixel)
{
    return rgbColorPSDDescriptor(pixel.redFloat(), pixel.greenFloat(), pixel.blueFloat());
}

} // namespace psdkit
