// The conversions between descriptors and the model's blend modes, colours, gradients and rectangles.
#include <cmath>
#include <functional>
#include <limits>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/descriptors/BlendModeConversion.hpp"
#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/RectConversion.hpp"
#include "support/DiagnosticsCapture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using image::BlendMode;
using image::ColorGradient;
using image::ColorStop;
using image::OpacityStop;
using image::RGBAPixel;
using testing::DiagnosticsCapture;
using testing::thrownError;
using List = PSDDescriptorPropertyValue::List;
using Unit = PSDUnitFloat::Unit;
using Code = PSDFourCharCode;

const Code blendModeType("BlnM");

// The descriptor a descriptor's own bytes read back as.
std::shared_ptr<PSDDescriptor> throughBytes(PSDDescriptor& written)
{
    const std::vector<std::uint8_t> bytes = written.data();
    PSDScanner scanner(bytes);
    auto read = std::make_shared<PSDDescriptor>();
    read->read(scanner, false);
    return read;
}

using Items = std::vector<std::pair<const char*, PSDDescriptorPropertyValue>>;

// A descriptor of the class `classID` holding `items` under four-character keys.
std::shared_ptr<PSDDescriptor> descriptorOf(UnifiedStringValue classID, Items items)
{
    auto d = std::make_shared<PSDDescriptor>(std::move(classID));
    for (auto& [key, value] : items) {
        d->set(Code(std::string(key)), std::move(value));
    }
    return d;
}
std::shared_ptr<PSDDescriptor> colorDescriptor(const char* classCode, Items items)
{
    return descriptorOf(Code(std::string(classCode)), std::move(items));
}

TEST(ColorConversionTest, ComponentsScaleBy255InSinglePrecisionAndOtherFormsAreRefused)
{
    const auto rgb = colorDescriptor("RGBC", {{"Rd  ", 255.0}, {"Grn ", 0.0}, {"Bl  ", 127.5}});
    EXPECT_EQ(rgbaPixelFromPSDDescriptor(*rgb), RGBAPixel(1, 0, 0.5f, 1));
    const auto written = psdDescriptor(RGBAPixel(1, 0, 0.5f, 0.25f));
    EXPECT_TRUE(written->hasSameContent(*rgb)); // alpha is not stored

    const auto gray = colorDescriptor("Grsc", {{"Gry ", 50.0}});
    EXPECT_EQ(pixelFromPSDDescriptor<RGBAPixel>(*gray), RGBAPixel(0.5f, 0.5f, 0.5f, 1));

    for (int v = 0; v <= 255; ++v) {
        const auto d =
            colorDescriptor("RGBC", {{"Rd  ", double(v)}, {"Grn ", double(v)}, {"Bl  ", double(v)}});
        const auto back = psdDescriptor(rgbaPixelFromPSDDescriptor(*d));
        EXPECT_EQ(*back->valueAs<double>(Code("Rd  ")), double(v));
    }

    // Unknown classes and missing components are refused.
    using E = PSDError;
    const std::tuple<const char*, std::shared_ptr<PSDDescriptor>, std::error_code> cases[] = {
        {"HSB colour", colorDescriptor("HSBC", {{"H   ", 0.0}}), E::readUnsupportedContentType},
        {"string class ID", std::make_shared<PSDDescriptor>(UnifiedStringValue::string("RGBC")),
         E::readUnsupportedContentType},
        {"integer red", colorDescriptor("RGBC", {{"Rd  ", std::int32_t{255}}, {"Grn ", 0.0}, {"Bl  ", 0.0}}),
         E::readCorruptFile},
        {"no blue", colorDescriptor("RGBC", {{"Rd  ", 1.0}, {"Grn ", 0.0}}), E::readCorruptFile},
        {"grey as unit float", colorDescriptor("Grsc", {{"Gry ", PSDUnitFloat{Unit::percent, 5}}}),
         E::readCorruptFile},
    };
    for (const auto& [what, d, error] : cases) {
        EXPECT_EQ(thrownError([&] { (void)rgbaPixelFromPSDDescriptor(*d); }), error) << what;
    }
}

ColorGradient sampleGradient()
{
    auto gradient =
        ColorGradient::make({{RGBAPixel(1, 0, 0, 1), 0.3, 0.505}, {RGBAPixel(0, 0, 1, 1), 1, 0.5}},
                            {{1, 0, 0.5}, {0.25, 0.5, 0.75}});
    gradient->name = "Sunset";
    return *gradient;
}

TEST(GradientConversionTest, WritesTheGradientLayoutWithTruncatedStops)
{
    const auto d = psdDescriptor(sampleGradient());
    std::string keys;
    for (const auto& [key, value] : d->properties) {
        keys += key.text() + ";";
    }
    EXPECT_EQ(keys, "Nm  ;GrdF;Intr;Clrs;Trns;");
    EXPECT_EQ(*d->valueAs<double>(Code("Intr")), 4096);
    const PSDDescriptor& first = *d->valueAs<List>(Code("Clrs"))->front().descriptor();
    EXPECT_EQ(first.classID, UnifiedStringValue(Code("Clrt")));
    EXPECT_EQ(*first.valueAs<std::int32_t>(Code("Lctn")), 1228); // 0.3 × 4096 = 1228.8
    EXPECT_EQ(*first.valueAs<std::int32_t>(Code("Mdpn")), 50);   // 0.505 × 100
    EXPECT_EQ(*first.valueAs<Enumerated>(Code("Type")), Enumerated(Code("Clry"), Code("UsrS")));
    const PSDDescriptor& opacity = *d->valueAs<List>(Code("Trns"))->back().descriptor();
    EXPECT_EQ(*opacity.valueAs<PSDUnitFloat>(Code("Opct")), (PSDUnitFloat{Unit::percent, 25}));

    // Through bytes and back: stops land on multiples of 1/4096 and whole percents.
    const auto back = gradientFromPSDDescriptor(*throughBytes(*d));
    EXPECT_EQ(back.name, "Sunset");
    EXPECT_EQ(back.colorStops()[0], (ColorStop{RGBAPixel(1, 0, 0, 1), 1228 / 4096.0, 0.5}));
    EXPECT_EQ(back.opacityStops(), sampleGradient().opacityStops());
}

TEST(GradientConversionTest, ReadsDefaultsAndDropsTheNameTerminator)
{
    auto d = psdDescriptor(sampleGradient());
    d->set(Code("Nm  "), std::string("Sunset\0", 7));
    auto* stop = d->valueAs<List>(Code("Clrs"))->front().descriptor();
    stop->set(Code("Lctn"), std::nullopt);
    stop->set(Code("Mdpn"), std::nullopt);
    d->valueAs<List>(Code("Clrs"))->back().descriptor()->set(Code("Lctn"), std::int32_t{2048});
    const auto gradient = gradientFromPSDDescriptor(*d);
    EXPECT_EQ(gradient.name, "Sunset");
    EXPECT_EQ(gradient.colorStops()[0].location, 0);
    EXPECT_EQ(gradient.colorStops()[0].midpoint, 0.5);
    EXPECT_EQ(gradient.colorStops()[1].location, 0.5);
    d->set(Code("Nm  "), std::nullopt);
    EXPECT_EQ(gradientFromPSDDescriptor(*d).name, std::nullopt);
}

TEST(GradientConversionTest, MalformedGradientsAreRefused)
{
    const auto key = [](const char* k) { return UnifiedStringValue(Code(std::string(k))); };
    const auto stop = [&](PSDDescriptor& d, const char* list) {
        return d.valueAs<List>(key(list))->front().descriptor();
    };
    using Edit = std::function<void(PSDDescriptor&)>;
    using E = PSDError;
    const std::tuple<const char*, Edit, std::error_code> cases[] = {
        {"class", [&](PSDDescriptor& d) { d.classID = key("Grdx"); }, E::readUnsupportedContentType},
        {"noise form", [&](PSDDescriptor& d) { d.set(key("GrdF"), Enumerated(key("GrdF"), key("ClNs"))); },
         E::readUnsupportedContentType},
        {"no form", [&](PSDDescriptor& d) { d.set(key("GrdF"), std::nullopt); },
         E::readUnsupportedContentType},
        {"no colour stops", [&](PSDDescriptor& d) { d.set(key("Clrs"), std::nullopt); }, E::readCorruptFile},
        {"stop not a descriptor",
         [&](PSDDescriptor& d) {
             d.set(key("Trns"), List{1.0, 2.0});
         },
         E::readCorruptFile},
        {"stop colour in CMYK",
         [&](PSDDescriptor& d) {
             stop(d, "Clrs")->set(key("Clr "), std::make_shared<PSDDescriptor>(key("CMYC")));
         },
         E::readUnsupportedContentType},
        {"opacity in pixels",
         [&](PSDDescriptor& d) {
             stop(d, "Trns")->set(key("Opct"), PSDUnitFloat{Unit::pixels, 100});
         },
         E::readCorruptFile},
        {"one colour stop", [&](PSDDescriptor& d) { d.valueAs<List>(key("Clrs"))->pop_back(); },
         E::readCorruptFile},
    };
    for (const auto& [what, edit, error] : cases) {
        auto d = psdDescriptor(sampleGradient());
        edit(*d);
        EXPECT_EQ(thrownError([&] { (void)gradientFromPSDDescriptor(*d); }), error) << what;
    }
}

TEST(GradientConversionTest, StopsThatDoNotFitTheFieldsAreRefusedOnWriting)
{
    for (const double location : {std::nan(""), 1e7, -1e7, std::numeric_limits<double>::infinity()}) {
        auto gradient = ColorGradient::make({{RGBAPixel(), location, 0.5}, {RGBAPixel(), 1, 0.5}}, {{}, {}});
        EXPECT_EQ(thrownError([&] { (void)psdDescriptor(*gradient); }), PSDError::writeParameterError)
            << location;
    }
    auto midpoint = ColorGradient::make({{}, {}}, {{1, 0, 3e7}, {}});
    EXPECT_EQ(thrownError([&] { (void)psdDescriptor(*midpoint); }), PSDError::writeParameterError);
    EXPECT_EQ(ColorGradient::make({{}}, {{}, {}}), std::nullopt);
}

TEST(RectConversionTest, EdgesAreTruncatedTowardZeroAndOtherClassesAndBadEdgesAreRefused)
{
    const auto rectDescriptor = [](Items edges) {
        return descriptorOf(UnifiedStringValue::string("classFloatRect"), std::move(edges));
    };
    const auto d = rectDescriptor({{"Top ", -0.7}, {"Left", 2.0}, {"Btom", 3.99}, {"Rght", 10.9}});
    EXPECT_EQ(macRectFromPSDDescriptor(*d), PSDMacRect(0, 2, 3, 10));
    const auto written = psdDescriptor(PSDMacRect(1, 2, 3, 4));
    EXPECT_TRUE(written->hasSameContent(
        *rectDescriptor({{"Top ", 1.0}, {"Left", 2.0}, {"Btom", 3.0}, {"Rght", 4.0}})));
    EXPECT_EQ(macRectFromPSDDescriptor(*throughBytes(*written)), PSDMacRect(1, 2, 3, 4));

    const auto rect = [&](PSDDescriptorPropertyValue top, PSDDescriptorPropertyValue left, double bottom) {
        return rectDescriptor({{"Top ", top}, {"Left", left}, {"Btom", bottom}, {"Rght", 0.0}});
    };
    const std::tuple<const char*, std::shared_ptr<PSDDescriptor>, std::error_code> cases[] = {
        {"code class", std::make_shared<PSDDescriptor>(Code("Rctn")), PSDError::readUnsupportedContentType},
        {"integer edge", rect(std::int32_t{1}, 0.0, 0.0), PSDError::readCorruptFile},
        {"unit float edge", rect(0.0, PSDUnitFloat{Unit::pixels, 1}, 0.0), PSDError::readCorruptFile},
        {"missing edge", rectDescriptor({{"Top ", 0.0}, {"Left", 0.0}, {"Btom", 0.0}}),
         PSDError::readCorruptFile},
        {"NaN edge", rect(std::nan(""), 0.0, 0.0), PSDError::readCorruptFile},
        {"edge beyond 64 bits", rect(0.0, 0.0, 1e19), PSDError::readCorruptFile},
    };
    for (const auto& [what, refused, error] : cases) {
        EXPECT_EQ(thrownError([&] { (void)macRectFromPSDDescriptor(*refused); }), error) << what;
    }
    EXPECT_EQ(macRectFromPSDDescriptor(*rect(-9223372036854775808.0, 0.0, 0.0)).top,
              std::numeric_limits<std::int64_t>::min());
}

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
