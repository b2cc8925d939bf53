#pragma once
// Framing of tagged blocks on writing. Layer-level blocks count their padding to 4 in their length;
// document-level blocks do not. In big files, the keys that can hold large data are signed "8B64"
// and carry 8-byte lengths.
#include <span>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/layers/PSDRawBlock.hpp"
#include "psdkit/layers/TaggedBlockKeys.hpp"

namespace psdkit::detail {

/// Where a tagged block stands: inside a layer record, or after the global layer mask.
enum class TaggedBlockLevel { layer, document };

/// Writes signature, key, length and the body that `body(writer)` appends, padded to 4.
template <typename Body>
void writeTaggedBlock(PSDWriter& writer, TaggedBlockLevel level, bool bigFile, const PSDFourCharCode& key,
                      Body&& body)
{
    const bool longLength = bigFile && usesLongLengthInBigFiles(key);
    writer.appendFourCharCode(longLength ? PSDFourCharCode("8B64") : PSDFourCharCode("8BIM"));
    writer.appendFourCharCode(key);
    writer.writePSDDataBlock(longLength, 4, level == TaggedBlockLevel::layer, std::forward<Body>(body));
}

/// The same with raw bytes as the body.
inline void writeRawTaggedBlock(PSDWriter& writer, TaggedBlockLevel level, bool bigFile,
                                const PSDFourCharCode& key, std::span<const std::uint8_t> bytes)
{
    writeTaggedBlock(writer, level, bigFile, key, [&](PSDWriter& w) { w.appendData(bytes); });
}

/// Writes a block kept from reading exactly as it was read: its signature, key and length width, its
/// length counting the body only, then the padding the reader skips (to even inside a layer record,
/// to a multiple of 4 at document level). A block read with the reading rules comes back byte for
/// byte. An "8BIM" block read with an 8-byte length gets a 4-byte one outside big files.
void writeKeptBlock(PSDWriter& writer, TaggedBlockLevel level, const PSDRawBlock& block, bool bigFile);

} // namespace psdkit::detail
