#pragma once
// Reading and writing property lists, the form in which a document stores its host-private
// properties. Both XML and binary property lists are read; XML ones are written.
//
// How values map:
// - integer ↔ `std::int64_t`. Property lists built by this library's backend carry integers as
//   64 bits without a sign: a negative number is read back by reinterpreting those 64 bits, so
//   −1 and 2^64−1 are the same value here (both read as −1). Integers above INT64_MAX therefore
//   cannot be represented and come back negative.
// - real ↔ `double`; boolean ↔ `bool`; string ↔ `std::string` (UTF-8); data ↔ byte vector.
// - date ↔ `PropertyDate`. XML property lists store dates to the whole second (ISO 8601 text),
//   binary ones to the microsecond; a date is written rounded toward negative infinity to whole
//   seconds in XML, and dates outside ±2^31 seconds around 2001 cannot be written.
// - dictionary ↔ `PropertyDictionary`; array ↔ `PropertyArray`.
// - `PSDFourCharCode` has no property-list form: writing one fails.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <span>
#include <vector>

#include "psdkit/platform/PropertyValue.hpp"

namespace psdkit {

/// Parses an XML or binary property list. A UTF-8 byte order mark in front of an XML property
/// list is skipped. The result is whatever the top level holds (usually a dictionary).
/// Throws `PlatformException(propertyListParse)` when the bytes are not a property list (empty
/// input included), or when a key or string is not valid UTF-8 or holds a NUL character (text
/// that `xmlPropertyList` could not write back). The input is only read during the call.
[[nodiscard]] PSDKIT_EXPORT PropertyValue parsePropertyList(std::span<const std::uint8_t> data);

/// Writes a dictionary as an XML property list (UTF-8, with the usual XML declaration and
/// DOCTYPE). Keys are written in the dictionary's (sorted) order, so equal dictionaries give
/// equal bytes. Throws `PlatformException(propertyListUnsupportedValue)` when a value anywhere
/// inside has no property-list form (a `PSDFourCharCode`, or a date out of range), and
/// `PlatformException(propertyListWrite)` when the backend fails to produce text.
[[nodiscard]] PSDKIT_EXPORT std::vector<std::uint8_t> xmlPropertyList(const PropertyDictionary& dictionary);

} // namespace psdkit
