#include <gtest/gtest.h>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/descriptors/BlendModeConversion.hpp"
#include "support/ByteBuilder.hpp"
#include "support/DiagnosticsCapture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using image::BlendMode;
using testing::DiagnosticsCapture;
using testing::thrownError;

const PSDFourCharCode blendModeType("BlnM");

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
    EXPECT_EQ(psdEnum(BlendMode::hue).value, UnifiedStringValue(PSDFourCharCode("H   ")));
    EXPECT_EQ(psdEnum(BlendMode::color).value, UnifiedStringValue(PSDFourCharCode("Clr ")));
    EXPECT_EQ(psdEnum(BlendMode::subtract).value, UnifiedStringValue::string("blendSubtraction"));
    EXPECT_EQ(psdEnum(BlendMode::linearBurn).value, UnifiedStringValue::string("linearBurn"));
}

TEST(BlendModeConversionTest, NamesOfTheWrongKindOrTypeAreNotModes)
{
    struct Case {
        Enumerated e;
        std::optional<BlendMode> mode;
        const char* diagnostic; // nullptr: none
    };
    const Case cases[] = {
        {{blendModeType, PSDFourCharCode("H   ")}, BlendMode::hue, nullptr},
        {{blendModeType, UnifiedStringValue::string("blendSubtraction")}, BlendMode::subtract, nullptr},
        {{blendModeType, UnifiedStringValue::string("Nrml")},
         std::nullopt,
         "Unsupported blend mode name Nrml."},
        {{blendModeType, PSDFourCharCode("Nrmx")}, std::nullopt, "Unsupported blend mode name 'Nrmx'."},
        {{blendModeType, UnifiedStringValue::string("subtract")},
         std::nullopt,
         "Unsupported blend mode name subtract."},
        {{blendModeType, PSDFourCharCode("linr")}, std::nullopt, "Unsupported blend mode name 'linr'."},
        {{UnifiedStringValue::string("BlnM"), PSDFourCharCode("Nrml")},
         std::nullopt,
         "Enum BlnM not representing a blend mode."},
        {{PSDFourCharCode("Blnm"), PSDFourCharCode("Nrml")},
         std::nullopt,
         "Enum 'Blnm' not representing a blend mode."},
    };
    for (const auto& c : cases) {
        DiagnosticsCapture diagnostics;
        EXPECT_EQ(blendModeFromPSDEnum(c.e), c.mode) << c.e.description();
        EXPECT_EQ(diagnostics.lines,
                  c.diagnostic ? std::vector<std::string>{c.diagnostic} : std::vector<std::string>{});
    }
}

TEST(BlendModeConversionTest, ModesWithoutDescriptorFormAreRefused)
{
    EXPECT_EQ(thrownError([] { (void)psdEnum(BlendMode::passThrough); }), PSDError::writeParameterError);
    EXPECT_EQ(thrownError([] { (void)psdEnum(BlendMode::behind); }), PSDError::writeParameterError);
    EXPECT_EQ(image::blendModeFromRawValue(1001), BlendMode::behind);
    EXPECT_EQ(image::blendModeFromRawValue(28), std::nullopt);
}

} // namespace
} // namespace psdkit
