#include "psdkit/layers/TaggedBlockKeys.hpp"

#include <algorithm>
#include <array>

#include "psdkit/layers/PSDLayerType.hpp"

namespace psdkit::detail {

bool usesLongLengthInBigFiles(const PSDFourCharCode& key)
{
    static const std::array<PSDFourCharLiteral, 16> kKeys = {"LMsk", "Lr16", "Lr32", "Layr", "Mt16", "Mt32",
                                                             "Mtrn", "Alph", "FMsk", "lnk2", "FEid", "FXid",
                                                             "PxSD", "artd", "cinf", "plst"};
    return std::find(kKeys.begin(), kKeys.end(), key) != kKeys.end();
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

bool isPatternKey(const PSDFourCharCode& key)
{
    return key == PSDFourCharCode("Patt") || key == PSDFourCharCode("Pat2") || key == PSDFourCharCode("Pat3");
}

} // namespace psdkit::detail
