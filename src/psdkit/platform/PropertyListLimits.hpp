#pragma once
// Internal to the property-list reader: cheap checks that a property list, before the backend
// parses it, stays within the nesting depth and the number of values the reader is prepared to
// build. Binary property lists may reference one object from many places; the backend copies
// each reference, so a few hundred bytes could otherwise expand into billions of values.
#include <cstddef>
#include <cstdint>
#include <span>

namespace psdkit::detail {

/// Deepest nesting of arrays and dictionaries the reader and writer accept.
inline constexpr std::size_t kMaxPropertyListDepth = 512;

/// Most values a property list of `byteCount` bytes may expand into once shared objects are
/// copied: generous for lists that share only leaves, far below what a hostile list reaches.
[[nodiscard]] std::uint64_t maxPropertyListValues(std::size_t byteCount) noexcept;

/// False when the nesting of <array> and <dict> elements in XML text goes deeper than allowed.
[[nodiscard]] bool xmlPropertyListIsBounded(std::span<const std::uint8_t> xml) noexcept;

/// False when a binary property list ("bplist00") is malformed in its trailer, offset table or
/// container references, holds a reference cycle, nests deeper than allowed, or expands into
/// more values than allowed.
[[nodiscard]] bool binaryPropertyListIsBounded(std::span<const std::uint8_t> data) noexcept;

/// False when a dictionary key would hold a NUL character: the backend cannot hand such a key
/// back (it stops the process on it). XML allows no NUL character at all, so XML text with a NUL
/// byte or a character reference to U+0000 is refused whole; in a binary list, a key string with
/// a zero code unit.
[[nodiscard]] bool propertyListKeysHaveNoNul(std::span<const std::uint8_t> data) noexcept;

} // namespace psdkit::detail
