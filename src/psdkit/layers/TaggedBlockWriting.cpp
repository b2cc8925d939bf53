#include "psdkit/layers/TaggedBlockWriting.hpp"

#include "psdkit/layers/PSDLayerType.hpp"

#include <algorithm>
#include <array>

namespace psdkit {

bool usesLongLengthInBigFiles(const PSDFourCharCode& key)
{
    static const std::array<PSDFourCharLiteral, 16> kKeys = {"LMsk", "Lr16", "Lr32", "Layr", "Mt16", "Mt32",
                                                             "Mtrn", "Alph", "FMsk", "lnk2", "FEid", "FXid",
                                                             "PxSD", "artd", "cinf", "plst"};
    return std::find(kKeys.begin(), kKeys.end(), key) != kKeys.end();
}

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

bool isTaggedDataKey(const PSDFourCharCode& key)
{
    static const std::array<PSDFourCharCode, 5> kOthers = {PSDFourCharCode("artb"), PSDFourCharCode("fxrp"),
                                                           PSDFourCharCode("lrFX"), PSDFourCharCode("lfx2"),
                                                           PSDFourCharCode("lmfx")};
    return adjustmentLayerTypeForKey(key).has_value() ||
           std::find(kOthers.begin(), kOthers.end(), key) != kOthers.end();
}

bool isGeneratedLayerBlockKey(const PSDFourCharCode& key)
{
    static const std::array<PSDFourCharCode, 7> kKeys = {
        PSDFourCharCode("luni"), PSDFourCharCode("lyid"), PSDFourCharCode("lsct"), PSDFourCharCode("lsdk"),
        PSDFourCharCode("iOpa"), PSDFourCharCode("lclr"), PSDFourCharCode("lspf")};
    return std::find(kKeys.begin(), kKeys.end(), key) != kKeys.end();
}

} // namespace psdkit
