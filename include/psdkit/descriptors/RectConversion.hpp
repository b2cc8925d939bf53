#pragma once
// Rectangles as descriptors hold them: the string class ID "classFloatRect" (not a code) with the
// doubles "Top ", "Left", "Btom" and "Rght".
#include "psdkit/Export.hpp"
#include <memory>

#include "psdkit/core/PSDMacRect.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit {

/// The rectangle `descriptor` holds, each edge truncated toward zero. Throws PSDException:
/// readUnsupportedContentType when the class ID is not the string "classFloatRect";
/// readCorruptFile when an edge is missing or not a double (an integer or unit float does not
/// count), or is not finite or does not fit a signed 64-bit integer after truncation.
[[nodiscard]] PSDKIT_EXPORT PSDMacRect macRectFromPSDDescriptor(const PSDDescriptor& descriptor);

/// A new top-level "classFloatRect" descriptor holding the four edges as doubles. Never fails.
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PSDDescriptor> psdDescriptor(const PSDMacRect& rect);

} // namespace psdkit
