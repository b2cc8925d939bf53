#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/descriptors/BlendModeConversion.hpp"
#include "support/DiagnosticsCapture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using image::BlendMode;
using testing::DiagnosticsCapture;
using testing::thrownError;

using Code = PSDFourCharCode;
const Code blendModeType("BlnM");

TEST(BlendModeConversionTest, EveryModeWithADescriptorFormRoundTrips)
{
    int modes = 0;
    for (const BlendMode mode : image::allBlendModes) {
        if (mode == BlendMode::passThrough || mode == BlendMode::behind) {
            continue;
        }
        const Enumerated e = psdEnum(mode);
        EXPECT_EQ(e.type, UnifiedStringValue(blendModeType));
        EXPECT_EQ(blendModeFromPSDEnum(e), mode) << image::rawValue(mode);
        ++modes;
    }
    EXPECT_EQ(modes, 27);
    EXPECT_EQ(psdEnum(BlendMode::hue).value, UnifiedStringValue(Code("H   ")));
    EXPECT_EQ(psdEnum(BlendMode::color).value, UnifiedStringValue(Code("Clr ")));
    EXPECT_EQ(psdEnum(BlendMode::subtract).value, UnifiedStringValue::string("blendSubtraction"));
    EXPECT_EQ(psdEnum(BlendMode::linearBurn).value, UnifiedStringValue::string("linearBurn"));
}

TEST(BlendModeConversionTest, NamesOfTheWrongKindOrTypeAreNotModesAndSomeModesHaveNoName)
{
    const auto text = UnifiedStringValue::string;
    const std::tuple<Enumerated, std::optional<BlendMode>, std::vector<std::string>> cases[] = {
        {{blendModeType, Code("H   ")}, BlendMode::hue, {}},
        {{blendModeType, text("blendSubtraction")}, BlendMode::subtract, {}},
        {{blendModeType, text("Nrml")}, std::nullopt, {"Unsupported blend mode name Nrml."}},
        {{blendModeType, Code("Nrmx")}, std::nullopt, {"Unsupported blend mode name 'Nrmx'."}},
        {{blendModeType, text("subtract")}, std::nullopt, {"Unsupported blend mode name subtract."}},
        {{blendModeType, Code("linr")}, std::nullopt, {"Unsupported blend mode name 'linr'."}},
        {{text("BlnM"), Code("Nrml")}, std::nullopt, {"Enum BlnM not representing a blend mode."}},
        {{Code("Blnm"), Code("Nrml")}, std::nullopt, {"Enum 'Blnm' not representing a blend mode."}},
    };
    for (const auto& [e, mode, diagnostic] : cases) {
        DiagnosticsCapture diagnostics;
        EXPECT_EQ(blendModeFromPSDEnum(e), mode) << e.description();
        EXPECT_EQ(diagnostics.lines, diagnostic);
    }
    EXPECT_EQ(thrownError([] { (void)psdEnum(BlendMode::passThrough); }), PSDError::writeParameterError);
    EXPECT_EQ(thrownError([] { (void)psdEnum(BlendMode::behind); }), PSDError::writeParameterError);
    EXPECT_EQ(image::blendModeFromRawValue(1001), BlendMode::behind);
    EXPECT_EQ(image::blendModeFromRawValue(28), std::nullopt);
}

} // namespace
} // namespace psdkit
