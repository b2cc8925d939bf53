// The layer model as the renderer draws it: opacity, masks, clipping, groups, blending ranges,
// fill and adjustment layers, depths, region and scale, and refused requests. Each expected pixel
// is worked out by hand in the row's comment.
#include <gtest/gtest.h>

#include "RenderTestDocuments.hpp"
#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit {
namespace {

using rendertest::pixel8;
using rendertest::Rgba8;
using rendertest::solidLayer;

constexpr Rgba8 black{0, 0, 0};
constexpr Rgba8 white{255, 255, 255};
constexpr Rgba8 grey153{153, 153, 153};
constexpr Rgba8 grey51{51, 51, 51};

/// A 2 × 1 document: black background, and the layers `build` adds; the two rendered pixels.
template <typename Build> std::pair<Rgba8, Rgba8> renderTwoPixels(Build build, Rgba8 background = black)
{
    PSDWrapper document = rendertest::makeDocument(2, 1);
    document.addLayerWrapper(solidLayer(document, background, {0, 0, 1, 2}));
    build(document);
    const auto image = renderDocument(document).image;
    return {pixel8(*image, 0, 0), pixel8(*image, 1, 0)};
}

std::vector<std::uint8_t> solidColorBlock(float r, float g, float b)
{
    PSDDescriptor settings;
    settings.set(PSDFourCharCode("Clr "), PSDDescriptorPropertyValue(rgbColorPSDDescriptor(r, g, b)));
    return settings.data();
}

// Grey and colour channels: source range 0…100 on grey, full elsewhere; backdrop full.
std::vector<std::uint8_t> darkOnlyRanges()
{
    std::vector<std::uint8_t> ranges;
    for (int channel = 0; channel < 4; ++channel) {
        const std::uint8_t top = channel == 0 ? 100 : 255;
        ranges.insert(ranges.end(), {0, 0, top, top, 0, 0, 255, 255});
    }
    return ranges;
}

struct SceneCase {
    const char* what;
    void (*build)(PSDWrapper&);
    Rgba8 left, right;
};

const SceneCase sceneCases[] = {
    // White at 50% × 50% over black: 0.25 → 64 (63.75 rounded).
    {"opacity and fill opacity multiply",
     [](PSDWrapper& d) {
         auto layer = solidLayer(d, white, {0, 0, 1, 2});
         layer->opacity = 0.5;
         layer->fillOpacity = 0.5;
         d.addLayerWrapper(layer);
     },
     {64, 64, 64},
     {64, 64, 64}},
    {"hidden layers and hidden groups draw nothing",
     [](PSDWrapper& d) {
         auto hidden = solidLayer(d, white, {0, 0, 1, 1});
         hidden->visible = false;
         d.addLayerWrapper(hidden);
         rendertest::openGroup(d);
         d.addLayerWrapper(solidLayer(d, white, {0, 1, 1, 2}));
         rendertest::closeGroup(d)->visible = false;
     },
     black, black},
    // Base: grey at the left pixel only, 50%; clipped white over both pixels.
    // Left: base 0.3 over black, then white at 0.5 coverage: 0.3 + 0.5 × 0.7 = 0.65 → 166.
    {"a clipped layer shows only where its base does, at the base's opacity",
     [](PSDWrapper& d) {
         auto base = solidLayer(d, grey153, {0, 0, 1, 1});
         base->opacity = 0.5;
         d.addLayerWrapper(base);
         auto clipped = solidLayer(d, white, {0, 0, 1, 2});
         clipped->clipping = true;
         d.addLayerWrapper(clipped);
     },
     {166, 166, 166},
     black},
    {"layers clipped to a hidden base are hidden",
     [](PSDWrapper& d) {
         auto base = solidLayer(d, grey153, {0, 0, 1, 2});
         base->visible = false;
         d.addLayerWrapper(base);
         auto clipped = solidLayer(d, white, {0, 0, 1, 2});
         clipped->clipping = true;
         d.addLayerWrapper(clipped);
     },
     black, black},
    {"a group's mask hides its members",
     [](PSDWrapper& d) {
         rendertest::openGroup(d);
         d.addLayerWrapper(solidLayer(d, white, {0, 0, 1, 2}));
         rendertest::setMask(*rendertest::closeGroup(d, "norm"), {0, 0, 1, 1}, {0});
     },
     black, white},
    {"a source brighter than its blending range is not shown",
     [](PSDWrapper& d) {
         auto bright = solidLayer(d, grey153, {0, 0, 1, 1});
         bright->layerBlendingRanges = darkOnlyRanges();
         d.addLayerWrapper(bright);
         auto dark = solidLayer(d, grey51, {0, 1, 1, 2});
         dark->layerBlendingRanges = darkOnlyRanges();
         d.addLayerWrapper(dark);
     },
     black, grey51},
    {"a solid colour fill covers the canvas under its mask",
     [](PSDWrapper& d) {
         auto fill = std::make_shared<PSDLayerWrapper>(8);
         fill->setType(PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor));
         fill->taggedData.insertOrAssign(PSDFourCharCode("SoCo"), solidColorBlock(0.2f, 0.6f, 1.0f));
         rendertest::setMask(*fill, {0, 0, 1, 1}, {0});
         d.addLayerWrapper(fill);
     },
     black,
     {51, 153, 255}},
};

TEST(RenderLayerModelTest, ScenesOverBlack)
{
    for (const SceneCase& c : sceneCases) {
        const auto [left, right] = renderTwoPixels(c.build);
        EXPECT_EQ(left, c.left) << c.what;
        EXPECT_EQ(right, c.right) << c.what;
    }
}

struct MaskCase {
    const char* what;
    std::uint8_t sample; // the mask's one sample, at the left pixel
    double defaultColor; // shown at the right pixel, outside the mask
    double density;
    bool disabled;
    Rgba8 left, right;
};

const MaskCase maskCases[] = {
    {"hides where black, default shows", 0, 1.0, 1.0, false, black, white},
    {"half grey sample, black default", 128, 0.0, 1.0, false, {128, 128, 128}, black},
    {"density one half lifts black to half", 0, 0.0, 0.5, false, {128, 128, 128}, {128, 128, 128}},
    {"disabled mask is ignored", 0, 0.0, 1.0, true, white, white},
};

class RenderMaskTest : public ::testing::TestWithParam<MaskCase> {};

TEST_P(RenderMaskTest, MaskWeighsTheLayer)
{
    const MaskCase& c = GetParam();
    const auto [left, right] = renderTwoPixels([&](PSDWrapper& d) {
        auto layer = solidLayer(d, white, {0, 0, 1, 2});
        rendertest::setMask(*layer, {0, 0, 1, 1}, {c.sample});
        layer->maskDefaultColor = c.defaultColor;
        layer->maskHasUserMaskDensity = c.density != 1.0;
        layer->userMaskDensity = c.density;
        layer->maskDisabled = c.disabled;
        d.addLayerWrapper(layer);
    });
    EXPECT_EQ(left, c.left) << c.what;
    EXPECT_EQ(right, c.right) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Masks, RenderMaskTest, ::testing::ValuesIn(maskCases));

struct GroupCase {
    const char* what;
    const char* groupKey;
    double groupOpacity;
    Rgba8 expected;
};

// Background 0.6 grey; inside the group a 0.2 grey layer that multiplies.
const GroupCase groupCases[] = {
    {"pass-through: the member multiplies with the background", "pass", 1.0, {31, 31, 31}}, // 0.12
    {"isolated: the member multiplies with nothing", "norm", 1.0, {51, 51, 51}},
    {"pass-through at half opacity", "pass", 0.5, {92, 92, 92}}, // (0.6 + 0.12) / 2 = 0.36
    {"isolated group multiplying", "mul ", 1.0, {31, 31, 31}},   // 0.6 × 0.2
    {"isolated at half opacity", "norm", 0.5, {102, 102, 102}},  // (0.6 + 0.2) / 2 = 0.4
};

class RenderGroupTest : public ::testing::TestWithParam<GroupCase> {};

TEST_P(RenderGroupTest, GroupComposition)
{
    const GroupCase& c = GetParam();
    const auto [left, right] = renderTwoPixels(
        [&](PSDWrapper& d) {
            rendertest::openGroup(d);
            auto member = solidLayer(d, grey51, {0, 0, 1, 2});
            member->blendMode = PSDFourCharCode("mul ");
            d.addLayerWrapper(member);
            rendertest::closeGroup(d, c.groupKey)->opacity = c.groupOpacity;
        },
        grey153);
    EXPECT_EQ(left, c.expected) << c.what;
    EXPECT_EQ(right, c.expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Groups, RenderGroupTest, ::testing::ValuesIn(groupCases));

/// A selective colour block (absolute) with one setting: `ink` (cyan, magenta, yellow, black) of
/// `range` (reds … blacks, 0…8) at `percent`.
std::vector<std::uint8_t> selectiveColorBlock(std::size_t range, std::size_t ink, std::uint8_t percent)
{
    std::vector<std::uint8_t> block(4 + 10 * 8, 0);
    block[1] = 1; // version
    block[3] = 1; // absolute
    block[4 + (range + 1) * 8 + ink * 2 + 1] = percent;
    return block;
}

struct AdjustmentCase {
    const char* what;
    PSDAdjustmentLayerType type;
    std::vector<std::uint8_t> block;
    Rgba8 expected; // over grey 153
};

const AdjustmentCase adjustmentCases[] = {
    {"invert", PSDAdjustmentLayerType::invert, {}, {102, 102, 102}},
    {"threshold at 128", PSDAdjustmentLayerType::threshold, {0, 128, 0, 0}, white},
    {"threshold at 200", PSDAdjustmentLayerType::threshold, {0, 200, 0, 0}, black},
    {"posterize to 2 levels", PSDAdjustmentLayerType::posterize, {0, 2, 0, 0}, white},
    {"posterize to 3 levels",
     PSDAdjustmentLayerType::posterize,
     {0, 3, 0, 0},
     {128, 128, 128}}, // step 1 of 2
    // Levels, composite input 51…204: (0.6 − 0.2) / 0.6 → 170; channels unchanged.
    {"levels",
     PSDAdjustmentLayerType::levels,
     {0,   2, 0, 51, 0,   204, 0, 0, 0,   255, 0,   100, 0, 0, 0,   255, 0, 0, 0,   255, 0,
      100, 0, 0, 0,  255, 0,   0, 0, 255, 0,   100, 0,   0, 0, 255, 0,   0, 0, 255, 0,   100},
     {170, 170, 170}},
    // Curves, composite only, through (input 0, output 255) and (255, 0): a straight inversion.
    {"curves",
     PSDAdjustmentLayerType::curves,
     {0, 0, 1, 0, 0, 0, 1, 0, 2, 0, 255, 0, 0, 0, 0, 0, 255},
     {102, 102, 102}},
    // Legacy brightness +51: 0.6 + 0.2.
    {"brightness", PSDAdjustmentLayerType::brightnessContrast, {0, 51, 0, 0, 0, 0, 0}, {204, 204, 204}},
    // Exposure 0, offset 0.2 (float 3E4CCCCD), gamma 1: 0.6 + 0.2.
    {"exposure",
     PSDAdjustmentLayerType::exposure,
     {0, 1, 0, 0, 0, 0, 0x3E, 0x4C, 0xCC, 0xCD, 0x3F, 0x80, 0, 0},
     {204, 204, 204}},
    // Mid-tones cyan–red +100: lightness 0.6 lies 0.8 in the mid-tones, red + 0.5 × 0.8.
    {"colour balance",
     PSDAdjustmentLayerType::colorBalance,
     {0, 0, 0, 0, 0, 0, 0, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
     {255, 153, 153}},
    // Red = 50% red + 50% green + 20%, green = nothing, blue = blue.
    {"channel mixer",
     PSDAdjustmentLayerType::channelMixer,
     {0, 1, 0, 0, 0, 50, 0, 50, 0, 0, 0, 0, 0,   20, 0, 0, 0,
      0, 0, 0, 0, 0, 0,  0, 0,  0, 0, 0, 0, 100, 0,  0, 0, 0},
     {204, 0, 153}},
    // Magenta filter (RGB 1, 0, 1) at density 100%: the pixel times the colour.
    {"photo filter",
     PSDAdjustmentLayerType::photoFilter,
     {0, 2, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0, 100, 0, 0},
     {153, 0, 153}},
    // Neutrals black +50% absolute: grey 0.6 is 1 − 0.1 − 0.1 = 0.8 neutral, 0.6 − 0.5 × 0.8.
    {"selective colour", PSDAdjustmentLayerType::selectiveColor, selectiveColorBlock(7, 3, 50), {51, 51, 51}},
    // Red to blue: luminosity 0.6 maps to 0.4 red and 0.6 blue.
    {"gradient map",
     PSDAdjustmentLayerType::gradientMap,
     {0, 1, 0, 0, 0, 0, 0, 0, 0,    2, 0, 0,  0, 0,   0, 0, 0,    50, 0, 0, 0xFF, 0xFF, 0, 0,
      0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0, 0, 0,  0, 50,  0, 0, 0,    0,  0, 0, 0xFF, 0xFF, 0, 0,
      0, 0, 0, 2, 0, 0, 0, 0, 0,    0, 0, 50, 0, 255, 0, 0, 0x10, 0,  0, 0, 0,    50,   0, 255},
     {102, 0, 153}},
};

class RenderAdjustmentTest : public ::testing::TestWithParam<AdjustmentCase> {};

TEST_P(RenderAdjustmentTest, AdjustsWhatLiesBelow)
{
    const AdjustmentCase& c = GetParam();
    const auto [left, right] = renderTwoPixels(
        [&](PSDWrapper& d) {
            auto adjustment = std::make_shared<PSDLayerWrapper>(8);
            adjustment->setType(PSDLayerType::adjustmentLayer(c.type));
            adjustment->taggedData.insertOrAssign(blockKey(c.type), c.block);
            d.addLayerWrapper(adjustment);
        },
        grey153);
    EXPECT_EQ(left, c.expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Adjustments, RenderAdjustmentTest, ::testing::ValuesIn(adjustmentCases));

TEST(RenderAdjustmentTest, AdjustmentOverTransparencyAddsNothing)
{
    PSDWrapper document = rendertest::makeDocument(1, 1);
    auto adjustment = std::make_shared<PSDLayerWrapper>(8);
    adjustment->setType(PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::invert));
    document.addLayerWrapper(adjustment);
    EXPECT_EQ(pixel8(*renderDocument(document).image, 0, 0), (Rgba8{0, 0, 0, 0}));
}

TEST(RenderDepthTest, SixteenAndThirtyTwoBitDocumentsBlendAtTheirDepth)
{
    for (const std::int64_t depth : {16, 32}) {
        PSDWrapper document = rendertest::makeDocument(1, 1, depth);
        document.addLayerWrapper(solidLayer(document, black, {0, 0, 1, 1}));
        auto top = solidLayer(document, white, {0, 0, 1, 1});
        top->opacity = 0.25;
        document.addLayerWrapper(top);
        const auto image = renderDocument(document).image;
        if (depth == 16) {
            const auto& p = static_cast<const image::PixelBuffer<image::PixelRGBA16>&>(*image).at(0, 0);
            EXPECT_EQ(p.r, 16384); // 0.25 × 65535 = 16383.75
            EXPECT_EQ(p.a, 65535);
        } else {
            const auto& p = static_cast<const image::PixelBuffer<image::PixelRGBA32>&>(*image).at(0, 0);
            EXPECT_FLOAT_EQ(p.r, 0.25f);
            EXPECT_FLOAT_EQ(p.a, 1.0f);
        }
    }
}

TEST(RenderGeometryTest, RegionAndScaleAverageTheCoveredPixels)
{
    // 4 × 2 canvas: the left half white, the right half black.
    PSDWrapper document = rendertest::makeDocument(4, 2);
    document.addLayerWrapper(solidLayer(document, black, {0, 0, 2, 4}));
    document.addLayerWrapper(solidLayer(document, white, {0, 0, 2, 2}));
    const auto half =
        renderDocument(document, rendertest::renderOptions([](auto& o) { o.scale = 0.5; })).image;
    ASSERT_EQ(half->size(), (image::IntegralSize{2, 1}));
    EXPECT_EQ(pixel8(*half, 0, 0), white);
    EXPECT_EQ(pixel8(*half, 1, 0), black);
    const auto quarter =
        renderDocument(document, rendertest::renderOptions([](auto& o) { o.scale = 0.25; })).image;
    ASSERT_EQ(quarter->size(), (image::IntegralSize{1, 1}));
    EXPECT_EQ(pixel8(*quarter, 0, 0), (Rgba8{128, 128, 128})); // 127.5 rounded
    const auto region = renderDocument(document, rendertest::renderOptions([](auto& o) {
                                           o.region = image::IntegralRect{1, 0, 2, 1};
                                       }))
                            .image;
    ASSERT_EQ(region->size(), (image::IntegralSize{2, 1}));
    EXPECT_EQ(pixel8(*region, 0, 0), white);
    EXPECT_EQ(pixel8(*region, 1, 0), black);
}

TEST(RenderGeometryTest, SelectedLayersOnly)
{
    PSDWrapper document = rendertest::makeDocument(1, 1);
    document.addLayerWrapper(solidLayer(document, grey51, {0, 0, 1, 1}));
    document.addLayerWrapper(solidLayer(document, white, {0, 0, 1, 1}));
    const auto image =
        renderDocument(document,
                       rendertest::renderOptions([](auto& o) { o.layers = std::vector<std::size_t>{0}; }))
            .image;
    EXPECT_EQ(pixel8(*image, 0, 0), grey51);
}

struct RefusalCase {
    const char* what;
    std::int64_t width, height;
    void (*set)(PSDRenderOptions&);
    PSDRenderError expected;
};

TEST(RenderRefusalTest, RefusedRequestsThrowTheirError)
{
    const RefusalCase cases[] = {
        {"scale zero", 4, 4, [](PSDRenderOptions& o) { o.scale = 0.0; }, PSDRenderError::invalidOptions},
        {"scale too large", 4, 4, [](PSDRenderOptions& o) { o.scale = 17.0; },
         PSDRenderError::invalidOptions},
        {"layer index out of range", 4, 4,
         [](PSDRenderOptions& o) { o.layers = std::vector<std::size_t>{3}; }, PSDRenderError::invalidOptions},
        {"region outside", 4, 4,
         [](PSDRenderOptions& o) {
             o.region = image::IntegralRect{10, 10, 2, 2};
         },
         PSDRenderError::invalidRegion},
        {"empty region", 4, 4,
         [](PSDRenderOptions& o) {
             o.region = image::IntegralRect{0, 0, 0, 2};
         },
         PSDRenderError::invalidRegion},
        {"empty canvas", 0, 4, [](PSDRenderOptions&) {}, PSDRenderError::invalidRegion},
        {"huge canvas", 1 << 20, 1 << 20, [](PSDRenderOptions&) {}, PSDRenderError::imageTooLarge},
        {"huge scaled output", 8192, 8192, [](PSDRenderOptions& o) { o.scale = 16.0; },
         PSDRenderError::imageTooLarge},
    };
    for (const RefusalCase& c : cases) {
        const PSDWrapper document = rendertest::makeDocument(c.width, c.height);
        try {
            (void)renderDocument(document, rendertest::renderOptions(c.set));
            ADD_FAILURE() << c.what << ": rendered";
        } catch (const PSDRenderException& e) {
            EXPECT_EQ(e.error(), c.expected) << c.what;
        }
    }
}

TEST(RenderEffectsTest, LayersWithEffectsAreReported)
{
    PSDWrapper document = rendertest::makeDocument(1, 1);
    document.addLayerWrapper(solidLayer(document, grey51, {0, 0, 1, 1}));
    auto withEffects = solidLayer(document, white, {0, 0, 1, 1});
    withEffects->taggedData.insertOrAssign(PSDFourCharCode("lfx2"), std::vector<std::uint8_t>{0, 0, 0, 0});
    document.addLayerWrapper(withEffects);
    const PSDRenderResult result = renderDocument(document);
    EXPECT_EQ(result.layersWithEffectsNotDrawn, (std::vector<std::size_t>{1}));
}

} // namespace
} // namespace psdkit
