// Every blend mode on one opaque pixel over an opaque backdrop, against values worked out by hand
// from the modes' published definitions (see the comment on each row).
#include <gtest/gtest.h>

#include <algorithm>

#include "RenderTestDocuments.hpp"

namespace psdkit {
namespace {

using rendertest::Rgba8;

struct BlendCase {
    const char* key;
    Rgba8 backdrop;
    Rgba8 source;
    Rgba8 expected;
};

// Separable rows: backdrop 0.6 (153), source 0.2 (51), in every channel.
constexpr Rgba8 grey153{153, 153, 153};
constexpr Rgba8 grey51{51, 51, 51};
constexpr Rgba8 red{153, 51, 51};  // 0.6, 0.2, 0.2: luminosity 0.32, saturation 0.4
constexpr Rgba8 blue{51, 51, 204}; // 0.2, 0.2, 0.8: luminosity 0.266, saturation 0.6

const BlendCase blendCases[] = {
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
    {"sLit", grey153, grey51, {116, 116, 116}}, // 2·0.6·0.2 + 0.36·0.6 = 0.456
    {"vLit", grey153, grey51, {0, 0, 0}},       // colour burn with 0.4: 1 - 0.4/0.4 = 0
    {"lLit", grey153, grey51, {0, 0, 0}},       // 0.6 + 0.4 - 1 = 0
    {"pLit", grey153, grey51, {102, 102, 102}}, // min(0.6, 0.4)
    {"hMix", grey153, grey51, {0, 0, 0}},       // 0.6 + 0.2 < 1
    {"hMix", grey153, {153, 153, 153}, {255, 255, 255}},
    {"hMix", {0, 0, 0}, {255, 255, 255}, {0, 0, 0}},       // a black backdrop stays black
    {"hMix", {255, 255, 255}, {0, 0, 0}, {255, 255, 255}}, // a white one white
    {"vLit", {0, 0, 0}, {255, 255, 255}, {255, 255, 255}}, // a white source dodges to white
    // Non-separable rows: backdrop red, source blue.
    {"dkCl", red, blue, {51, 51, 204}}, // luminosity 0.266 < 0.32: the source
    {"lgCl", red, blue, {153, 51, 51}}, // the backdrop
    {"lum ", red, blue, {139, 37, 37}}, // red shifted by 0.266 - 0.32
    {"colr", red, blue, {65, 65, 218}}, // blue shifted by 0.32 - 0.266
    {"hue ", red, blue, {70, 70, 172}}, // (0, 0, 0.4) then luminosity 0.32
    {"sat ", red, blue, {189, 36, 36}}, // (0.6, 0, 0) then luminosity 0.32
    // Modes that only change coverage: fully opaque pixels show the source.
    {"diss", grey153, grey51, {51, 51, 51}},
};

TEST(RenderBlendModeTest, OpaquePixelOverOpaqueBackdropGivesTheHandWorkedColour)
{
    for (const BlendCase& c : blendCases) {
        PSDWrapper document = rendertest::makeDocument(1, 1);
        rendertest::add(document, c.backdrop, {0, 0, 1, 1});
        rendertest::add(document, c.source, {0, 0, 1, 1}, 1, c.key);
        EXPECT_EQ(rendertest::pixel8(*renderDocument(document).image, 0, 0), c.expected) << c.key;
    }
}

TEST(RenderDissolveTest, HalfOpaqueLayerShowsWholePixelsInTheSamePatternEveryTime)
{
    // Several tiles, drawn on one thread and on three.
    PSDWrapper document = rendertest::makeDocument(64, 64);
    rendertest::add(document, {0, 0, 0}, {0, 0, 64, 64});
    rendertest::add(document, {255, 255, 255}, {0, 0, 64, 64}, 0.5, "diss");
    const auto first =
        renderDocument(document, rendertest::renderOptions([](auto& o) { o.threadCount = 1; }));
    const auto second =
        renderDocument(document, rendertest::renderOptions([](auto& o) { o.threadCount = 3; }));
    const auto bytes = first.image->bytes(); // alpha, red, green, blue
    EXPECT_TRUE(std::ranges::all_of(bytes, [](std::uint8_t v) { return v == 0 || v == 255; }));
    EXPECT_NEAR(static_cast<double>(std::ranges::count(bytes, 255)), 64 * 64 * (1 + 3 * 0.5),
                600); // opaque, half white
    EXPECT_TRUE(std::ranges::equal(bytes, second.image->bytes()));
}

} // namespace
} // namespace psdkit
