#pragma once
// Resources that ship with the library itself.
#include <cstdint>
#include <span>

namespace psdkit::detail {

/// The colour mode data written for a 32-bit document that has none of its own (its HDR toning
/// settings). psdkit ships no such settings: the span is empty, so such a document is written
/// with an empty colour mode data section, and readers use their default toning. Static
/// storage; never throws.
[[nodiscard]] std::span<const std::uint8_t> libraryResourceHDRToning() noexcept;

} // namespace psdkit::detail
