#pragma once
// Colour gradients as descriptors hold them: class "Grdn" with "Nm  " (the name), "GrdF" (the
// enumerated form, custom stops "CstS"), "Intr" (4096), "Clrs" (a list of "Clrt" colour-stop
// descriptors) and "Trns" (a list of "TrnS" opacity-stop descriptors). A stop stores its location
// as an integer 0 to 4096 and its midpoint as an integer percent; an opacity stop its opacity as a
// percent unit float; a colour stop its colour as a colour descriptor (see ColorConversion.hpp).
#include "psdkit/Export.hpp"
#include <memory>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/platform/image/ColorGradient.hpp"

namespace psdkit {

/// The gradient `descriptor` holds. Its name is "Nm  " without a terminating NUL (unnamed when
/// "Nm  " is missing); stop locations are "Lctn" / 4096 (0 when missing), midpoints "Mdpn" / 100
/// (0.5 when missing), opacities "Opct" / 100. Builds nothing partial and does not change
/// `descriptor`. Throws PSDException:
/// - readUnsupportedContentType: the class ID is not the code "Grdn"; "GrdF" is not an enumerated
///   value whose value is the code "CstS"; a stop colour of another class than "RGBC"/"Grsc";
/// - readCorruptFile: "Clrs" or "Trns" missing or not a list of descriptors; a colour stop without
///   a "Clr " descriptor or with a colour component missing; an opacity stop without a percent
///   "Opct"; fewer than two stops of either kind (ColorGradient refuses them).
[[nodiscard]] PSDKIT_EXPORT image::ColorGradient gradientFromPSDDescriptor(const PSDDescriptor& descriptor);

/// A new top-level "Grdn" descriptor for `gradient` ("Nm  " only when it has a name). Locations
/// are written as location × 4096 and midpoints as midpoint × 100, each truncated toward zero.
/// Throws PSDException(writeParameterError) when such a product is not finite or does not fit a
/// signed 32-bit integer.
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PSDDescriptor>
psdDescriptor(const image::ColorGradient& gradient);

} // namespace psdkit
