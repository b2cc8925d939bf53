#pragma once
// Keeping a tagged block whole on reading, for `PSDReadOptions::keepUnknownBlocks`.
#include <cstdint>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/layers/PSDRawBlock.hpp"

namespace psdkit::detail {

/// Reads `length` bytes at the scanner's cursor as the body of a kept block. This is the one place
/// where kept bodies get their storage: a view sharing the input when the document was read from
/// `PSDSharedBytes`, else a copy. Throws what `scanSharedData` throws (a negative length:
/// readParameterError; past the end: readUnexpectedEndOfFile).
inline PSDRawBlock readKeptBlock(PSDScanner& scanner, const PSDFourCharCode& signature,
                                 const PSDFourCharCode& key, bool longLength, std::int64_t length)
{
    return PSDRawBlock{signature, key, longLength, scanner.scanSharedData(length)};
}

} // namespace psdkit::detail
