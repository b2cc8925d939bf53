#include "psdkit/layers/TaggedBlockWriting.hpp"

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

} // namespace psdkit
