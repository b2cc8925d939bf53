#include "psdkit/layers/PSDLayerType.hpp"

#include <array>

namespace psdkit {
namespace {
struct AdjustmentEntry {
    PSDFourCharLiteral key;
    const char* name;
};
const std::array<AdjustmentEntry, 19>& adjustmentTable()
{
    static const std::array<AdjustmentEntry, 19> table = {{
        {"SoCo", "solidColor"},         {"GdFl", "gradientFill"},  {"PtFl", "patternFill"},
        {"brit", "brightnessContrast"}, {"levl", "levels"},        {"curv", "curves"},
        {"expA", "exposure"},           {"vibA", "vibrance"},      {"hue2", "hueSaturation"},
        {"blnc", "colorBalance"},       {"blwh", "blackAndWhite"}, {"phfl", "photoFilter"},
        {"mixr", "channelMixer"},       {"clrL", "colorLookup"},   {"nvrt", "invert"},
        {"post", "posterize"},          {"thrs", "threshold"},     {"grdm", "gradientMap"},
        {"selc", "selectiveColor"},
    }};
    return table;
}
} // namespace

PSDFourCharCode blockKey(PSDAdjustmentLayerType type)
{
    return adjustmentTable()[static_cast<std::size_t>(type)].key;
}

const char* name(PSDAdjustmentLayerType type) noexcept
{
    return adjustmentTable()[static_cast<std::size_t>(type)].name;
}

std::optional<PSDAdjustmentLayerType> adjustmentLayerTypeForKey(const PSDFourCharCode& key)
{
    const auto& table = adjustmentTable();
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i].key == key) {
            return static_cast<PSDAdjustmentLayerType>(i);
        }
    }
    return std::nullopt;
}

std::string PSDLayerType::description() const
{
    switch (kind_) {
    case Kind::adjustmentLayer:
        return std::string("adjustmentLayer(") + name(adjustment_) + ")";
    case Kind::regular:
        return "regular";
    case Kind::group:
        return "group";
    case Kind::sectionDivider:
        return "sectionDivider";
    case Kind::sceneGroup:
        return "sceneGroup";
    case Kind::artboard:
        return "artboard";
    }
    return "regular";
}

} // namespace psdkit
