// The renderer on small documents built in memory: blend modes, opacity, masks, clipping, groups,
// blending ranges, fill and adjustment layers, depths, region and scale, and refused requests.
// Each expected pixel is worked out by hand in the row's comment.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit {
namespace {

/// An 8-bit colour with transparency.
struct Rgba8 {
    int r, g, b, a = 255;
    friend bool operator==(const Rgba8&, const Rgba8&) = default;
};

/// A document of `width` × `height` at `depth` bits.
inline PSDWrapper makeDocument(std::int64_t width, std::int64_t height, std::int64_t depth = 8)
{
    PSDWrapper document;
    document.imageWidth = width;
    document.imageHeight = height;
    document.bitDepth = depth;
    return document;
}

template <typename Pixel> void setContent(PSDLayerWrapper& layer, PSDMacRect rect, Pixel pixel)
{
    auto buffer = std::make_shared<image::PixelBuffer<Pixel>>(rect.size());
    std::ranges::fill(buffer->pixels(), pixel);
    layer.contentsRect = rect;
    layer.setContentImage(buffer);
}

/// Adds a pixel layer of one colour over `rect` at the document's depth, with `opacity` and the
/// blend mode `key`; returns it.
inline std::shared_ptr<PSDLayerWrapper> add(PSDWrapper& document, Rgba8 c, PSDMacRect rect = {0, 0, 1, 2},
                                            double opacity = 1, const char* key = "norm")
{
    auto layer = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    const auto to16 = [](int v) { return static_cast<std::uint16_t>(v * 257); };
    const auto to32 = [](int v) { return static_cast<float>(v) / 255.0f; };
    if (document.bitDepth == 16) {
        setContent(*layer, rect, image::PixelRGBA16{to16(c.r), to16(c.g), to16(c.b), to16(c.a)});
    } else if (document.bitDepth == 32) {
        setContent(*layer, rect, image::PixelRGBA32{to32(c.r), to32(c.g), to32(c.b), to32(c.a)});
    } else {
        const auto to8 = [](int v) { return static_cast<std::uint8_t>(v); };
        setContent(*layer, rect, image::PixelARGB8{to8(c.a), to8(c.r), to8(c.g), to8(c.b)});
    }
    layer->opacity = opacity;
    layer->blendMode = PSDFourCharCode(std::string(key));
    document.addLayerWrapper(layer);
    return layer;
}

/// Adds a group of the members `members` adds, with the blend mode `key` and `opacity`; returns
/// the group's record (the divider lies below the members, the record above them).
template <typename Members>
std::shared_ptr<PSDLayerWrapper> addGroup(PSDWrapper& document, const char* key, double opacity,
                                          Members members)
{
    document.addSectionDivider();
    members(document);
    auto group = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    group->setType(PSDLayerType::group());
    group->blendMode = PSDFourCharCode(std::string(key));
    group->opacity = opacity;
    document.addLayerWrapper(group);
    return group;
}

/// Gives `layer` a mask of one sample at (0, 0), with `defaultColor` elsewhere; returns the layer.
inline PSDLayerWrapper& masked(std::shared_ptr<PSDLayerWrapper> layer, std::uint8_t sample,
                               double defaultColor = 1)
{
    auto buffer = std::make_shared<image::PixelBuffer<image::PixelGray8>>(image::IntegralSize{1, 1});
    buffer->pixels()[0].v = sample;
    layer->hasLayerMask = true;
    layer->maskRect = {0, 0, 1, 1};
    layer->maskDefaultColor = defaultColor;
    layer->setMaskImage(buffer);
    return *layer;
}

/// Options with only the fields `set` changes.
template <typename Set> PSDRenderOptions renderOptions(Set set)
{
    PSDRenderOptions options;
    set(options);
    return options;
}

/// The pixel at (x, y) of an 8-bit render.
inline Rgba8 pixel8(const image::PixelBufferType& image, std::int64_t x, std::int64_t y)
{
    const auto& p = static_cast<const image::PixelBuffer<image::PixelARGB8>&>(image).at(x, y);
    return {p.r, p.g, p.b, p.a};
}

using enum PSDAdjustmentLayerType;

constexpr Rgba8 black{0, 0, 0}, white{255, 255, 255}, grey153{153, 153, 153}, grey51{51, 51, 51};

/// A 2 × 1 document: `background` under the layers `build` adds; the two rendered pixels.
template <typename Build> std::pair<Rgba8, Rgba8> renderTwoPixels(Build build, Rgba8 background = black)
{
    PSDWrapper document = makeDocument(2, 1);
    add(document, background);
    build(document);
    const auto image = renderDocument(document).image;
    return {pixel8(*image, 0, 0), pixel8(*image, 1, 0)};
}

/// Adds a fill or adjustment layer of `type` with the settings `block`; returns it.
std::shared_ptr<PSDLayerWrapper> addSettings(PSDWrapper& d, PSDAdjustmentLayerType type,
                                             std::vector<std::uint8_t> block)
{
    auto layer = std::make_shared<PSDLayerWrapper>(8);
    layer->setType(PSDLayerType::adjustmentLayer(type));
    layer->taggedData.insertOrAssign(blockKey(type), std::move(block));
    d.addLayerWrapper(layer);
    return layer;
}

// Per channel (grey, red, green, blue) the source's and the backdrop's black and white ranges:
// the source's grey only up to 100, everything else full.
const std::vector<std::uint8_t> darkOnlyRanges = {0,   0,   100, 100, 0,   0,   255, 255, 0,   0,  255,
                                                  255, 0,   0,   255, 255, 0,   0,   255, 255, 0,  0,
                                                  255, 255, 0,   0,   255, 255, 0,   0,   255, 255};

// Every blend mode on one opaque pixel over an opaque backdrop, against values worked out by hand
// from the modes' published definitions (see the comment on each row).
struct BlendCase {
    const char* key;
    Rgba8 backdrop, source, expected;
};

constexpr Rgba8 warm{153, 51, 51}; // 0.6, 0.2, 0.2: luminosity 0.32, saturation 0.4
constexpr Rgba8 cool{51, 51, 204}; // 0.2, 0.2, 0.8: luminosity 0.266, saturation 0.6

const BlendCase blendCases[] = {
    // Separable rows: backdrop 0.6 (153), source 0.2 (51), in every channel.
    {"norm", grey153, grey51, {51, 51, 51}},
    {"mul ", grey153, grey51, {31, 31, 31}},    // 0.12
    {"scrn", grey153, grey51, {173, 173, 173}}, // 0.68
    {"dark", grey153, grey51, {51, 51, 51}},
    {"lite", grey153, grey51, {153, 153, 153}},
    {"diff", grey153, grey51, {102, 102, 102}}, // 0.4
    {"smud", grey153, grey51, {143, 143, 143}}, // 0.8 - 0.24 = 0.56
    {"lbrn", grey153, grey51, {0, 0, 0}},       // 0.6 + 0.2 - 1 < 0
    {"lddg", grey153, grey51, {204, 204, 204}}, // 0.8
    {"fsub", grey153, grey51, {102, 102, 102}}, // 0.4
    {"fdiv", grey153, grey51, {255, 255, 255}}, // 0.6 / 0.2 > 1
    {"idiv", grey153, grey51, {0, 0, 0}},       // 1 - 0.4 / 0.2 < 0
    {"div ", grey153, grey51, {191, 191, 191}}, // 0.6 / 0.8 = 0.75
    {"over", grey153, grey51, {92, 92, 92}},    // screen(0.2, 0.2) = 0.36
    {"hLit", grey153, grey51, {61, 61, 61}},    // 0.6 × 0.4 = 0.24
    {"sLit", grey153, grey51, {116, 116, 116}}, // 0.6 − 0.6·0.6·0.4 = 0.456
    // A dark backdrop, b = 0.102, under s = 0.8: b + 0.6 (((16b − 12)b + 4)b − b) = 0.221 (√b: 59).
    {"sLit", {26, 26, 26}, {204, 204, 204}, {56, 56, 56}},
    {"vLit", grey153, grey51, {0, 0, 0}},       // colour burn with 0.4: 1 - 0.4/0.4 = 0
    {"lLit", grey153, grey51, {0, 0, 0}},       // 0.6 + 0.4 - 1 = 0
    {"pLit", grey153, grey51, {102, 102, 102}}, // min(0.6, 0.4)
    {"hMix", grey153, grey51, {0, 0, 0}},       // 0.6 + 0.2 < 1
    {"hMix", grey153, {153, 153, 153}, {255, 255, 255}},
    {"hMix", {0, 0, 0}, {255, 255, 255}, {0, 0, 0}},       // a black backdrop stays black
    {"hMix", {255, 255, 255}, {0, 0, 0}, {255, 255, 255}}, // a white one white
    {"vLit", {0, 0, 0}, {255, 255, 255}, {255, 255, 255}}, // a white source dodges to white
    // Non-separable rows: backdrop warm, source cool.
    {"dkCl", warm, cool, {51, 51, 204}}, // luminosity 0.266 < 0.32: the source
    {"lgCl", warm, cool, {153, 51, 51}}, // the backdrop
    {"lum ", warm, cool, {139, 37, 37}}, // warm shifted by 0.266 - 0.32
    {"colr", warm, cool, {65, 65, 218}}, // cool shifted by 0.32 - 0.266
    {"hue ", warm, cool, {70, 70, 172}}, // (0, 0, 0.4) then luminosity 0.32
    {"sat ", warm, cool, {189, 36, 36}}, // (0.6, 0, 0) then luminosity 0.32
    // Modes that only change coverage: fully opaque pixels show the source.
    {"diss", grey153, grey51, {51, 51, 51}},
};

TEST(RenderBlendModeTest, OpaquePixelOverOpaqueBackdropGivesTheHandWorkedColour)
{
    for (const BlendCase& c : blendCases) {
        PSDWrapper document = makeDocument(1, 1);
        add(document, c.backdrop, {0, 0, 1, 1});
        add(document, c.source, {0, 0, 1, 1}, 1, c.key);
        EXPECT_EQ(pixel8(*renderDocument(document).image, 0, 0), c.expected) << c.key;
    }
}

TEST(RenderDissolveTest, HalfOpaqueLayerShowsWholePixelsInTheSamePatternEveryTime)
{
    // Several tiles, drawn on one thread and on three.
    PSDWrapper document = makeDocument(64, 64);
    add(document, {0, 0, 0}, {0, 0, 64, 64});
    add(document, {255, 255, 255}, {0, 0, 64, 64}, 0.5, "diss");
    const auto first = renderDocument(document, renderOptions([](auto& o) { o.threadCount = 1; }));
    const auto second = renderDocument(document, renderOptions([](auto& o) { o.threadCount = 3; }));
    const auto bytes = first.image->bytes(); // alpha, red, green, blue
    EXPECT_TRUE(std::ranges::all_of(bytes, [](std::uint8_t v) { return v == 0 || v == 255; }));
    // Every pixel opaque, about half of them white.
    EXPECT_NEAR(static_cast<double>(std::ranges::count(bytes, 255)), 64 * 64 * (1 + 3 * 0.5), 600);
    EXPECT_TRUE(std::ranges::equal(bytes, second.image->bytes()));
}

struct SceneCase {
    const char* what;
    Rgba8 background, left, right;
    void (*build)(PSDWrapper&);
};

constexpr Rgba8 grey31{31, 31, 31}, grey64{64, 64, 64}, grey92{92, 92, 92}, grey128{128, 128, 128};
constexpr Rgba8 grey166{166, 166, 166}, sky{51, 153, 255}, clear{0, 0, 0, 0};

const SceneCase sceneCases[] = {
    // White at 50% × 50% over black: 0.25 → 64 (63.75 rounded).
    {"opacity and fill opacity multiply", black, grey64, grey64,
     [](PSDWrapper& d) {
         add(d, white, {0, 0, 1, 2}, 0.5)->fillOpacity = 0.5;
     }},
    {"hidden layers and hidden groups draw nothing", black, black, black,
     [](PSDWrapper& d) {
         add(d, white, {0, 0, 1, 1})->visible = false;
         addGroup(d, "pass", 1, [](PSDWrapper& g) { add(g, white, {0, 1, 1, 2}); })->visible = false;
     }},
    // Base: grey at the left pixel only, 50%; clipped white over both pixels.
    // Left: base 0.3 over black, then white at 0.5 coverage: 0.3 + 0.5 × 0.7 = 0.65 → 166.
    {"a clipped layer shows only where its base does, at its opacity", black, grey166, black,
     [](PSDWrapper& d) {
         add(d, grey153, {0, 0, 1, 1}, 0.5);
         add(d, white)->clipping = true;
     }},
    {"layers clipped to a hidden base are hidden", black, black, black,
     [](PSDWrapper& d) {
         add(d, grey153)->visible = false;
         add(d, white)->clipping = true;
     }},
    {"a source brighter than its blending range is not shown", black, black, grey51,
     [](PSDWrapper& d) {
         add(d, grey153, {0, 0, 1, 1})->layerBlendingRanges = darkOnlyRanges;
         add(d, grey51, {0, 1, 1, 2})->layerBlendingRanges = darkOnlyRanges;
     }},
    {"a solid colour fill covers the canvas under its mask", black, black, sky,
     [](PSDWrapper& d) {
         PSDDescriptor settings;
         settings.set(PSDFourCharCode("Clr "), rgbColorPSDDescriptor(0.2f, 0.6f, 1.0f));
         masked(addSettings(d, solidColor, settings.data()), 0);
     }},
    {"an adjustment over transparency adds nothing", clear, clear, clear,
     [](PSDWrapper& d) { addSettings(d, invert, {}); }},
    {"a mask hides where black, its default shows", black, black, white,
     [](PSDWrapper& d) { masked(add(d, white), 0); }},
    {"a half grey mask sample, a black default", black, grey128, black,
     [](PSDWrapper& d) { masked(add(d, white), 128, 0); }},
    {"mask density one half lifts black to half", black, grey128, grey128,
     [](PSDWrapper& d) {
         auto& layer = masked(add(d, white), 0, 0);
         layer.maskHasUserMaskDensity = true;
         layer.userMaskDensity = 0.5;
     }},
    {"a disabled mask is ignored", black, white, white,
     [](PSDWrapper& d) { masked(add(d, white), 0, 0).maskDisabled = true; }},
    {"a group's mask hides its members", black, black, white,
     [](PSDWrapper& d) { masked(addGroup(d, "norm", 1, [](PSDWrapper& g) { add(g, white); }), 0); }},
    // Groups over 0.6 grey holding a 0.2 grey member that multiplies.
    {"pass-through: the member multiplies with the background", grey153, grey31, grey31,
     [](PSDWrapper& d) {
         addGroup(d, "pass", 1, [](PSDWrapper& g) { add(g, grey51, {0, 0, 1, 2}, 1, "mul "); });
     }},
    {"isolated: the member multiplies with nothing", grey153, grey51, grey51,
     [](PSDWrapper& d) {
         addGroup(d, "norm", 1, [](PSDWrapper& g) { add(g, grey51, {0, 0, 1, 2}, 1, "mul "); });
     }},
    // (0.6 + 0.12) / 2 = 0.36; the member does not reach the right pixel.
    {"pass-through at half opacity", grey153, grey92, grey153,
     [](PSDWrapper& d) {
         addGroup(d, "pass", 0.5, [](PSDWrapper& g) { add(g, grey51, {0, 0, 1, 1}, 1, "mul "); });
     }},
    // (0.6 + 0.6 × 0.2) / 2 = 0.36.
    {"an isolated group multiplying at half opacity", grey153, grey92, grey92,
     [](PSDWrapper& d) { addGroup(d, "mul ", 0.5, [](PSDWrapper& g) { add(g, grey51); }); }},
};

TEST(RenderLayerModelTest, Scenes)
{
    for (const SceneCase& c : sceneCases) {
        const auto [left, right] = renderTwoPixels(c.build, c.background);
        EXPECT_EQ(left, c.left) << c.what;
        EXPECT_EQ(right, c.right) << c.what;
    }
}

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

// A pattern fill layer written by ag-psd, an independent writer: the 4 × 3 pattern "tile" (pixel i
// is 20i, 255 − 20i, and 255 blue when i is odd) with its phase at (1, 2), over a 16 × 12 canvas.
// Then the same fill turned a quarter anticlockwise about its phase ("Angl" 90°): the pixel whose
// centre lies (dx, dy) from the phase point shows pattern column ⌊−dy⌋, row ⌊dx⌋. Last, the
// pattern found in an earlier, kept pattern block when the last one no longer has it.
TEST(RenderPatternFillTest, RepeatsTheNamedPatternFromItsPhaseAndAngle)
{
    std::ifstream in(std::string(PSDKIT_SOURCE_DIR) + "/tests/render/data/agpsd-pattern-fill.psd",
                     std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    const auto mod = [](int v, int n) { return (v % n + n) % n; };
    for (const bool turned : {false, true}) {
        PSDReadOptions options;
        options.keepUnknownBlocks = !turned;
        PSDWrapper document{std::span<const std::uint8_t>(bytes), options};
        if (!turned) {
            ASSERT_TRUE(document.patternData);
            document.patternData->clear();
        } else {
            auto fill = std::find_if(document.layers.begin(), document.layers.end(), [](const auto& layer) {
                return layer->taggedData.contains(PSDFourCharCode("PtFl"));
            });
            ASSERT_NE(fill, document.layers.end());
            auto& block = (*fill)->taggedData.find(PSDFourCharCode("PtFl"))->second;
            PSDScanner scanner(block);
            PSDDescriptor settings;
            settings.read(scanner, false);
            settings.set(PSDFourCharCode("Angl"), PSDUnitFloat{PSDUnitFloat::Unit::angle, 90});
            block = settings.data();
        }
        const auto image = renderDocument(document).image;
        for (const auto& [x, y] : {std::pair{0, 0}, {1, 2}, {6, 4}, {15, 11}, {3, 9}}) {
            const int column = turned ? mod(1 - y, 4) : mod(x - 1, 4);
            const int row = turned ? mod(x - 1, 3) : mod(y - 2, 3);
            const int i = row * 4 + column;
            EXPECT_EQ(pixel8(*image, x, y), (Rgba8{20 * i, 255 - 20 * i, i % 2 * 255}))
                << (turned ? "turned " : "") << x << ", " << y;
        }
    }
}

struct AdjustmentCase {
    const char* what;
    std::uint32_t expected; // 0xRRGGBB, over grey 153
    PSDAdjustmentLayerType type;
    std::vector<std::uint8_t> block;
};

const AdjustmentCase adjustmentCases[] = {
    {"invert", 0x666666, invert, {}},
    {"threshold at 128", 0xFFFFFF, threshold, {0, 128, 0, 0}},
    {"posterize to 3 levels: step 1 of 2", 0x808080, posterize, {0, 3, 0, 0}},
    // Levels, composite input 51…204: (0.6 − 0.2) / 0.6 → 170; channels unchanged.
    {"levels", 0xAAAAAA, levels, {0, 2,   0, 51,  0, 204, 0, 0,   0, 255, 0, 100, 0, 0,
                                  0, 255, 0, 0,   0, 255, 0, 100, 0, 0,   0, 255, 0, 0,
                                  0, 255, 0, 100, 0, 0,   0, 255, 0, 0,   0, 255, 0, 100}},
    // Curves, composite only, through (input 0, output 255) and (255, 0): a straight inversion.
    {"curves", 0x666666, curves, {0, 0, 1, 0, 0, 0, 1, 0, 2, 0, 255, 0, 0, 0, 0, 0, 255}},
    // Legacy brightness +51: 0.6 + 0.2.
    {"brightness", 0xCCCCCC, brightnessContrast, {0, 51, 0, 0, 0, 0, 0}},
    // Exposure 0, offset 0.2 (float 3E4CCCCD), gamma 1: 0.6 + 0.2.
    {"exposure", 0xCCCCCC, exposure, {0, 1, 0, 0, 0, 0, 0x3E, 0x4C, 0xCC, 0xCD, 0x3F, 0x80, 0, 0}},
    // Mid-tones cyan–red +100: lightness 0.6 lies 0.8 in the mid-tones, red + 0.5 × 0.8.
    {"colour balance", 0xFF9999, colorBalance, {0, 0, 0, 0, 0, 0, 0, 100, 0, 0,
                                                0, 0, 0, 0, 0, 0, 0, 0,   0, 0}},
    // Red = 50% red + 50% green + 20%, green = nothing, blue = blue.
    {"channel mixer", 0xCC0099, channelMixer, {0, 1, 0, 0, 0, 50, 0, 50, 0, 0, 0, 0, 0,   20, 0, 0, 0,
                                               0, 0, 0, 0, 0, 0,  0, 0,  0, 0, 0, 0, 100, 0,  0, 0, 0}},
    // Magenta filter (RGB 1, 0, 1) at density 100%: the pixel times the colour.
    {"photo filter",
     0x990099,
     photoFilter,
     {0, 2, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0, 100, 0, 0}},
    // Neutrals black +50% absolute: grey 0.6 is 1 − 0.1 − 0.1 = 0.8 neutral, 0.6 − 0.5 × 0.8.
    {"selective colour", 0x333333, selectiveColor, selectiveColorBlock(7, 3, 50)},
    // Red to blue: luminosity 0.6 maps to 0.4 red and 0.6 blue.
    {"gradient map", 0x660099, gradientMap, {0,    1,  0, 0, 0,    0,    0, 0,  0, 2, 0, 0,  0,    0,    0, 0,
                                             0,    50, 0, 0, 0xFF, 0xFF, 0, 0,  0, 0, 0, 0,  0,    0,    0, 0,
                                             0x10, 0,  0, 0, 0,    50,   0, 0,  0, 0, 0, 0,  0xFF, 0xFF, 0, 0,
                                             0,    0,  0, 2, 0,    0,    0, 0,  0, 0, 0, 50, 0,    255,  0, 0,
                                             0x10, 0,  0, 0, 0,    50,   0, 255}},
};

TEST(RenderAdjustmentTest, AdjustsWhatLiesBelow)
{
    for (const AdjustmentCase& c : adjustmentCases) {
        const auto pixels = renderTwoPixels([&](PSDWrapper& d) { addSettings(d, c.type, c.block); }, grey153);
        const Rgba8 expected{int(c.expected >> 16), int(c.expected >> 8 & 0xFF), int(c.expected & 0xFF)};
        EXPECT_EQ(pixels.first, expected) << c.what;
    }
}

TEST(RenderDepthTest, SixteenAndThirtyTwoBitDocumentsBlendAtTheirDepth)
{
    for (const std::int64_t depth : {16, 32}) {
        PSDWrapper document = makeDocument(1, 1, depth);
        add(document, black, {0, 0, 1, 1});
        add(document, white, {0, 0, 1, 1}, 0.25);
        const auto image = renderDocument(document).image;
        using namespace image;
        const float shown = depth == 16
                                ? static_cast<const PixelBuffer<PixelRGBA16>&>(*image).at(0, 0).r / 65535.0f
                                : static_cast<const PixelBuffer<PixelRGBA32>&>(*image).at(0, 0).r;
        EXPECT_FLOAT_EQ(shown, depth == 16 ? 16384 / 65535.0f : 0.25f); // 0.25 × 65535 = 16383.75
    }
}

TEST(RenderGeometryTest, RegionScaleAndLayerSelection)
{
    // 4 × 2 canvas: the left half white over grey, the right half grey.
    PSDWrapper document = makeDocument(4, 2);
    add(document, grey51, {0, 0, 2, 4});
    add(document, white, {0, 0, 2, 2});
    const auto quarter = renderDocument(document, renderOptions([](auto& o) { o.scale = 0.25; })).image;
    ASSERT_EQ(quarter->size(), (image::IntegralSize{1, 1}));
    EXPECT_EQ(pixel8(*quarter, 0, 0), (Rgba8{153, 153, 153})); // (1 + 0.2) / 2 = 0.6
    const auto region = renderDocument(document, renderOptions([](auto& o) {
                                           o.region = image::IntegralRect{1, 0, 2, 1};
                                       }))
                            .image;
    ASSERT_EQ(region->size(), (image::IntegralSize{2, 1}));
    EXPECT_EQ(pixel8(*region, 0, 0), white);
    EXPECT_EQ(pixel8(*region, 1, 0), grey51);
    const auto bottomOnly =
        renderDocument(document, renderOptions([](auto& o) { o.layers = std::vector<std::size_t>{0}; }))
            .image;
    EXPECT_EQ(pixel8(*bottomOnly, 0, 0), grey51);
}

struct RefusalCase {
    const char* what;
    std::int64_t width, height;
    void (*set)(PSDRenderOptions&);
    PSDRenderError expected;
};

TEST(RenderRefusalTest, RefusedRequestsThrowTheirError)
{
    using Options = PSDRenderOptions;
    const RefusalCase cases[] = {
        {"scale zero", 4, 4, [](Options& o) { o.scale = 0.0; }, PSDRenderError::invalidOptions},
        {"scale too large", 4, 4, [](Options& o) { o.scale = 17.0; }, PSDRenderError::invalidOptions},
        {"layer out of range", 4, 4, [](Options& o) { o.layers = {{3}}; }, PSDRenderError::invalidOptions},
        {"region outside", 4, 4,
         [](Options& o) {
             o.region = {{10, 10, 2, 2}};
         },
         PSDRenderError::invalidRegion},
        {"empty region", 4, 4,
         [](Options& o) {
             o.region = {{0, 0, 0, 2}};
         },
         PSDRenderError::invalidRegion},
        {"empty canvas", 0, 4, [](Options&) {}, PSDRenderError::invalidRegion},
        {"huge canvas", 1 << 20, 1 << 20, [](Options&) {}, PSDRenderError::imageTooLarge},
        {"huge scaled output", 8192, 8192, [](Options& o) { o.scale = 16.0; }, PSDRenderError::imageTooLarge},
    };
    for (const RefusalCase& c : cases) {
        try {
            (void)renderDocument(makeDocument(c.width, c.height), renderOptions(c.set));
            ADD_FAILURE() << c.what << ": rendered";
        } catch (const PSDRenderException& e) {
            EXPECT_EQ(e.error(), c.expected) << c.what;
        }
    }
}

TEST(RenderEffectsTest, LayersWithEffectsAreReported)
{
    PSDWrapper document = makeDocument(1, 1);
    add(document, grey51, {0, 0, 1, 1});
    add(document, white, {0, 0, 1, 1})
        ->taggedData.insertOrAssign(PSDFourCharCode("lfx2"), std::vector<std::uint8_t>{0, 0, 0, 0});
    const PSDRenderResult result = renderDocument(document);
    EXPECT_EQ(result.layersWithEffectsNotDrawn, (std::vector<std::size_t>{1}));
}

} // namespace
} // namespace psdkit
