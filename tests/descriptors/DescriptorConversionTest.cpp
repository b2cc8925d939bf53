// The conversions between descriptors and the model's blend modes, colours, gradients (also those of the
// corpus files) and rectangles.
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/descriptors/BlendModeConversion.hpp"
#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/RectConversion.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"
#include "support/CorpusFiles.hpp"
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

TEST(ColorConversionTest, ComponentsScaleBy255InSinglePrecisionAndOtherFormsAreRefused)
{
    const auto rgb = descriptorOf(Code("RGBC"), {{"Rd  ", 255.0}, {"Grn ", 0.0}, {"Bl  ", 127.5}});
    EXPECT_EQ(rgbaPixelFromPSDDescriptor(*rgb), RGBAPixel(1, 0, 0.5f, 1));
    const auto written = psdDescriptor(RGBAPixel(1, 0, 0.5f, 0.25f));
    EXPECT_TRUE(written->hasSameContent(*rgb)); // alpha is not stored

    const auto gray = descriptorOf(Code("Grsc"), {{"Gry ", 50.0}});
    EXPECT_EQ(pixelFromPSDDescriptor<RGBAPixel>(*gray), RGBAPixel(0.5f, 0.5f, 0.5f, 1));

    for (int v = 0; v <= 255; ++v) {
        const auto d =
            descriptorOf(Code("RGBC"), {{"Rd  ", double(v)}, {"Grn ", double(v)}, {"Bl  ", double(v)}});
        const auto back = psdDescriptor(rgbaPixelFromPSDDescriptor(*d));
        EXPECT_EQ(*back->valueAs<double>(Code("Rd  ")), double(v));
    }

    // Unknown classes and missing components are refused.
    using E = PSDError;
    const std::tuple<const char*, std::shared_ptr<PSDDescriptor>, std::error_code> cases[] = {
        {"HSB colour", descriptorOf(Code("HSBC"), {{"H   ", 0.0}}), E::readUnsupportedContentType},
        {"string class ID", std::make_shared<PSDDescriptor>(UnifiedStringValue::string("RGBC")),
         E::readUnsupportedContentType},
        {"integer red",
         descriptorOf(Code("RGBC"), {{"Rd  ", std::int32_t{255}}, {"Grn ", 0.0}, {"Bl  ", 0.0}}),
         E::readCorruptFile},
        {"no blue", descriptorOf(Code("RGBC"), {{"Rd  ", 1.0}, {"Grn ", 0.0}}), E::readCorruptFile},
        {"grey as unit float", descriptorOf(Code("Grsc"), {{"Gry ", PSDUnitFloat{Unit::percent, 5}}}),
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
    const auto set = [&](const char* k, std::optional<PSDDescriptorPropertyValue> v) {
        return Edit([=](PSDDescriptor& d) { d.set(key(k), v); });
    };
    const auto setInStop = [&](const char* list, const char* k, PSDDescriptorPropertyValue v) {
        return Edit([=](PSDDescriptor& d) { stop(d, list)->set(key(k), v); });
    };
    using E = PSDError;
    const std::tuple<const char*, Edit, std::error_code> cases[] = {
        {"class", [&](PSDDescriptor& d) { d.classID = key("Grdx"); }, E::readUnsupportedContentType},
        {"noise form", set("GrdF", Enumerated(key("GrdF"), key("ClNs"))), E::readUnsupportedContentType},
        {"no form", set("GrdF", std::nullopt), E::readUnsupportedContentType},
        {"no colour stops", set("Clrs", std::nullopt), E::readCorruptFile},
        {"stop not a descriptor", set("Trns", List{1.0, 2.0}), E::readCorruptFile},
        {"stop colour in CMYK", setInStop("Clrs", "Clr ", std::make_shared<PSDDescriptor>(key("CMYC"))),
         E::readUnsupportedContentType},
        {"opacity in pixels", setInStop("Trns", "Opct", PSDUnitFloat{Unit::pixels, 100}), E::readCorruptFile},
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

// Gradient fills of real files convert to the stops an independent reader (psd-tools, see
// data/gradient_fill_stops.py) sees: every one of the RGB files, which the document reader reads.
// Each line of data/gradient-fill-stops.txt holds the stops of one gradient fill record; its raw
// numbers are scaled here as the conversions scale them. That every descriptor of the corpus reads,
// writes and reads back equal is the descriptor fuzz target's promise, checked by its seed replay.
TEST(GradientConversionTest, GradientFillsOfTheCorpusConvertToTheStopsAnIndependentReaderSees)
{
    std::ifstream in(std::string(PSDKIT_SOURCE_DIR) + "/tests/descriptors/data/gradient-fill-stops.txt");
    std::map<std::string, std::vector<std::uint8_t>> files; // kept while their documents are read
    std::map<std::string, PSDWrapper> documents;
    std::size_t compared = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.find(" RGBC ") == std::string::npos) {
            continue; // grey and CMYK stop colours are the unit tests' cases
        }
        std::istringstream fields(line);
        std::string file, marker, colorClass;
        std::size_t record = 0, count = 0;
        fields >> file >> record >> marker >> count;
        SCOPED_TRACE(file + " record " + std::to_string(record));
        std::vector<image::ColorStop> colorStops(count);
        for (auto& stop : colorStops) {
            double location = 0, midpoint = 0, red = 0, green = 0, blue = 0;
            fields >> location >> midpoint >> colorClass >> red >> green >> blue;
            const auto component = [](double value) { return static_cast<float>(value) / 255.0f; };
            stop = {{component(red), component(green), component(blue), 1}, location / 4096, midpoint / 100};
        }
        fields >> marker >> count;
        std::vector<image::OpacityStop> opacityStops(count);
        for (auto& stop : opacityStops) {
            double location = 0, midpoint = 0, opacity = 0;
            fields >> location >> midpoint >> opacity;
            stop = {opacity / 100, location / 4096, midpoint / 100};
        }
        if (!documents.contains(file)) {
            files[file] = testing::readCorpusFile(file);
            documents.emplace(file, PSDWrapper(files[file]));
        }
        const auto& layers = documents.at(file).layers;
        ASSERT_LT(record, layers.size());
        const auto block = findLayerBlock(*layers[record], PSDFourCharCode("GdFl"));
        ASSERT_TRUE(block.has_value());
        PSDScanner scanner(*block);
        PSDDescriptor fill;
        fill.read(scanner, false);
        const PSDDescriptor* gradientDescriptor = fill.descriptorValue(PSDFourCharCode("Grad"));
        ASSERT_NE(gradientDescriptor, nullptr);
        const auto gradient = gradientFromPSDDescriptor(*gradientDescriptor);
        EXPECT_EQ(gradient.colorStops(), colorStops);
        EXPECT_EQ(gradient.opacityStops(), opacityStops);
        EXPECT_TRUE(gradient.name.has_value() && (gradient.name->empty() || gradient.name->back() != '\0'));
        ++compared;
    }
    EXPECT_EQ(compared, 55u);
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
TEST(BlendModeConversionTest, EveryModeWithADescriptorFormRoundTripsAndOtherNamesAreNotModes)
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

    // Names of the wrong kind or type are not modes, and pass-through and behind have no name.
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
