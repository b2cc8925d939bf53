#include "psdkit/descriptors/BlendModeConversion.hpp"

#include <array>
#include <string>
#include <string_view>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"

namespace psdkit {
namespace {
using image::BlendMode;

struct BlendModeName {
    BlendMode mode;
    bool isCode; // a four-character code, else a string
    std::string_view text;
};

constexpr std::array<BlendModeName, 27> blendModeNames = {{
    {BlendMode::normal, true, "Nrml"},
    {BlendMode::dissolve, true, "Dslv"},
    {BlendMode::darken, true, "Drkn"},
    {BlendMode::multiply, true, "Mltp"},
    {BlendMode::colorBurn, true, "CBrn"},
    {BlendMode::linearBurn, false, "linearBurn"},
    {BlendMode::darkerColor, false, "darkerColor"},
    {BlendMode::lighten, true, "Lghn"},
    {BlendMode::screen, true, "Scrn"},
    {BlendMode::colorDodge, true, "CDdg"},
    {BlendMode::linearDodge, false, "linearDodge"},
    {BlendMode::lighterColor, false, "lighterColor"},
    {BlendMode::overlay, true, "Ovrl"},
    {BlendMode::softLight, true, "SftL"},
    {BlendMode::hardLight, true, "HrdL"},
    {BlendMode::vividLight, false, "vividLight"},
    {BlendMode::linearLight, false, "linearLight"},
    {BlendMode::pinLight, false, "pinLight"},
    {BlendMode::hardMix, false, "hardMix"},
    {BlendMode::difference, true, "Dfrn"},
    {BlendMode::exclusion, true, "Xclu"},
    {BlendMode::subtract, false, "blendSubtraction"},
    {BlendMode::divide, false, "blendDivide"},
    {BlendMode::hue, true, "H   "},
    {BlendMode::saturation, true, "Strt"},
    {BlendMode::color, true, "Clr "},
    {BlendMode::luminosity, true, "Lmns"},
}};

const PSDFourCharCode& blendModeType()
{
    static const PSDFourCharCode type("BlnM");
    return type;
}

} // namespace

std::optional<image::BlendMode> blendModeFromPSDEnum(const Enumerated& psdEnum)
{
    const auto* type = psdEnum.type.fourCharCodeValue();
    if (type == nullptr || !(*type == blendModeType())) {
        emitDiagnostic("Enum " + psdEnum.type.description() + " not representing a blend mode.");
        return std::nullopt;
    }
    const bool valueIsCode = psdEnum.value.fourCharCodeValue() != nullptr;
    const std::string& valueText = psdEnum.value.text();
    for (const auto& name : blendModeNames) {
        if (name.isCode == valueIsCode && name.text == valueText) {
            return name.mode;
        }
    }
    emitDiagnostic("Unsupported blend mode name " + psdEnum.value.description() + ".");
    return std::nullopt;
}

Enumerated psdEnum(image::BlendMode mode)
{
    for (const auto& name : blendModeNames) {
        if (name.mode == mode) {
            const std::string text(name.text);
            return Enumerated(blendModeType(), name.isCode ? UnifiedStringValue(PSDFourCharCode(text))
                                                           : UnifiedStringValue::string(text));
        }
    }
    throw PSDException(PSDError::writeParameterError);
}

} // namespace psdkit
