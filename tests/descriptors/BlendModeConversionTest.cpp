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

// Every mode but pass-through and behind has a descriptor form, a code or a string.
TEST(BlendModeConversionTest, EveryModeWithADescriptorFormRoundTrips)
{
    int modes = 0;
    for (const BlendMode mode : image::allBlendModes) {
        if (mode != BlendMode::passThrough && mode != BlendMode::behind) {
            EXPECT_EQ(blendModeFromPSDEnum(psdEnum(mode)), mode) << image::rawValue(mode);
            ++modes;
        }
    }
    EXPECT_EQ(modes, 27);
    EXPECT_EQ(psdEnum(BlendMode::hue), Enumerated(blendModeType, Code("H   ")));
    EXPECT_EQ(psdEnum(BlendMode::subtract),
              Enumerated(blendModeType, UnifiedStringValue::string("blendSubtraction")));
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
