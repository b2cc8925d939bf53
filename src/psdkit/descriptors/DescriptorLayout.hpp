#pragma once
// Pieces of the descriptor layout shared by reading and writing. Internal to the descriptors.
#include <cstddef>
#include <cstdint>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/descriptors/UnifiedStringValue.hpp"

namespace psdkit::detail {

/// The type tags of the values a descriptor can hold.
namespace typeTags {
inline const PSDFourCharCode descriptorTag("Objc");
inline const PSDFourCharCode globalObjectTag("GlbO"); ///< read as a descriptor, never written
inline const PSDFourCharCode doubleTag("doub");
inline const PSDFourCharCode unitFloatTag("UntF");
inline const PSDFourCharCode textTag("TEXT");
inline const PSDFourCharCode enumeratedTag("enum");
inline const PSDFourCharCode integerTag("long");
inline const PSDFourCharCode booleanTag("bool");
inline const PSDFourCharCode listTag("VlLs");
inline const PSDFourCharCode rawDataTag("tdta");
} // namespace typeTags

/// Largest item count, list count or byte-buffer length the 4-byte fields can carry.
inline constexpr std::uint32_t maximumDescriptorCount = 0x7FFFFFFF;

/// Reads an identifier: a zero length word and a four-character code, or a counted Mac OS Roman
/// string (a length word with its top bit set gives the empty string).
[[nodiscard]] UnifiedStringValue scanDescriptorID(PSDScanner& scanner);

/// Reads an item or list count; a count of 2^31 or more is refused with readUnexpectedEndOfFile
/// (no file can hold that many entries).
[[nodiscard]] std::uint32_t scanDescriptorCount(PSDScanner& scanner);

/// Appends an identifier: four zero bytes and the code, or the byte count and the Mac OS Roman
/// bytes of the string. writeUnknownError when the text has no exact Mac OS Roman form.
void appendDescriptorID(PSDWriter& writer, const UnifiedStringValue& id);

/// Appends a count as 4 bytes; writeParameterError when it exceeds maximumDescriptorCount.
void appendDescriptorCount(PSDWriter& writer, std::size_t count);

} // namespace psdkit::detail
