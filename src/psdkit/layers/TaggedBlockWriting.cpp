#include "psdkit/layers/TaggedBlockWriting.hpp"

namespace psdkit::detail {

void writeKeptBlock(PSDWriter& writer, TaggedBlockLevel level, const PSDRawBlock& block, bool bigFile)
{
    // An "8BIM" block read with an 8-byte length (big files of some writers) keeps that width only
    // in a big file; a PSD reader takes "8BIM" lengths as 4 bytes.
    const bool longLength = block.longLength && (block.signature == PSDFourCharCode("8B64") || bigFile);
    writer.appendFourCharCode(block.signature);
    writer.appendFourCharCode(block.key);
    writer.writePSDDataBlock(longLength, level == TaggedBlockLevel::layer ? 2 : 4, false,
                             [&](PSDWriter& w) { w.appendData(block.data.span()); });
}

} // namespace psdkit::detail
