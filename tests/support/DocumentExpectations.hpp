#pragma once
// Expectations shared by the corpus and round-trip tests: a layer's fields by name (as the corpus
// facts name them), and a document or layer read back equal to the one written, field by field and
// pixel by pixel, up to what writing changes by rule.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::testing {

// An image's bytes followed by its pixel format, so that an empty image differs from none.
inline std::vector<std::uint8_t> bytesOf(const std::shared_ptr<image::PixelBufferType>& image)
{
    if (!image) {
        return {};
    }
    std::vector<std::uint8_t> bytes(image->bytes().begin(), image->bytes().end());
    bytes.push_back(static_cast<std::uint8_t>(image->format()));
    return bytes;
}

// Kept raw blocks come back padded to a multiple of 4.
inline std::vector<std::uint8_t> paddedTo4(std::vector<std::uint8_t> bytes)
{
    bytes.resize((bytes.size() + 3) / 4 * 4, 0);
    return bytes;
}

// Blend modes a 32-bit record cannot hold come back as "norm".
inline bool writtenAsNormal(const PSDFourCharCode& mode, std::int64_t depth)
{
    static const PSDFourCharCode kModes[] = {
        PSDFourCharCode("idiv"), PSDFourCharCode("lbrn"), PSDFourCharCode("scrn"), PSDFourCharCode("div "),
        PSDFourCharCode("over"), PSDFourCharCode("sLit"), PSDFourCharCode("hLit"), PSDFourCharCode("vLit"),
        PSDFourCharCode("lLit"), PSDFourCharCode("pLit"), PSDFourCharCode("hMix"), PSDFourCharCode("smud")};
    return depth == 32 && std::find(std::begin(kModes), std::end(kModes), mode) != std::end(kModes);
}

// A fraction as the byte the file stores.
inline std::int64_t byteOf(double fraction)
{
    return static_cast<std::int64_t>(fraction * 255.0 + 0.5);
}

inline nlohmann::json rectFact(const PSDMacRect& r)
{
    return nlohmann::json::array({r.top, r.left, r.bottom, r.right});
}

// One fact, a name and its value; `PSDKIT_FACT(object, field)` is a field under its own name. A list
// of facts makes a JSON object.
inline nlohmann::json fact(const char* name, nlohmann::json value)
{
    return nlohmann::json::array({name, std::move(value)});
}
#define PSDKIT_FACT(object, field) fact(#field, (object).field)

template <typename... Facts> nlohmann::json objectOf(Facts&&... facts)
{
    return nlohmann::json{std::forward<Facts>(facts)...};
}

// A layer's record fields under their own names, fractions as the bytes the file stores; the mask's
// in `maskFacts`. The corpus facts (expected-psdkit.json) use the same names.
inline nlohmann::json layerFacts(const PSDLayerWrapper& l)
{
    return objectOf(PSDKIT_FACT(l, name), PSDKIT_FACT(l, layerID), PSDKIT_FACT(l, colorLabel),
                    PSDKIT_FACT(l, selected), PSDKIT_FACT(l, expanded), PSDKIT_FACT(l, clipping),
                    PSDKIT_FACT(l, lockFlags), PSDKIT_FACT(l, visible),
                    PSDKIT_FACT(l, pixelDataIrrelevantToAppearanceOfDocument), PSDKIT_FACT(l, hasLayerMask),
                    fact("type", l.type().description()), fact("subtype", l.subtype.description()),
                    fact("contentsRect", rectFact(l.contentsRect)), fact("blendMode", l.blendMode.rawValue()),
                    fact("opacity", byteOf(l.opacity)), fact("fillOpacity", byteOf(l.fillOpacity)));
}

inline nlohmann::json maskFacts(const PSDLayerWrapper& l)
{
    return objectOf(PSDKIT_FACT(l, maskIsPositionedRelativeToLayer), PSDKIT_FACT(l, maskDisabled),
                    PSDKIT_FACT(l, maskCameFromRenderingOtherData), PSDKIT_FACT(l, maskHasUserMaskDensity),
                    PSDKIT_FACT(l, maskHasUserMaskFeather), PSDKIT_FACT(l, userMaskFeather),
                    PSDKIT_FACT(l, maskHasVectorMaskDensity), PSDKIT_FACT(l, maskHasVectorMaskFeather),
                    PSDKIT_FACT(l, vectorMaskFeather), PSDKIT_FACT(l, hasRealFlags),
                    PSDKIT_FACT(l, realMaskIsPositionedRelativeToLayer), PSDKIT_FACT(l, realMaskDisabled),
                    PSDKIT_FACT(l, realMaskCameFromRenderingOtherData),
                    fact("maskRect", rectFact(l.maskRect)), fact("realMaskRect", rectFact(l.realMaskRect)),
                    fact("maskDefaultColor", byteOf(l.maskDefaultColor)),
                    fact("realMaskDefaultColor", byteOf(l.realMaskDefaultColor)),
                    fact("userMaskDensity", byteOf(l.userMaskDensity)),
                    fact("vectorMaskDensity", byteOf(l.vectorMaskDensity)));
}

// Every fact of `got` equals the one of `expected` under its name; real numbers (resolutions,
// feathers) within one 16.16 fixed-point step.
inline void expectFacts(const nlohmann::json& got, const nlohmann::json& expected)
{
    for (const auto& [key, value] : got.items()) {
        if (value.is_number_float()) {
            EXPECT_NEAR(value.get<double>(), expected.at(key).get<double>(), 1.0 / 65535) << key;
        } else {
            EXPECT_EQ(value, expected.at(key)) << key;
        }
    }
}

inline void expectSameLayer(const PSDLayerWrapper& a, const PSDLayerWrapper& b, std::int64_t depth)
{
    nlohmann::json expected = layerFacts(a);
    if (writtenAsNormal(a.blendMode, depth)) {
        expected["blendMode"] = "norm";
    }
    if (a.type().kind() != PSDLayerType::Kind::group &&
        a.type().kind() != PSDLayerType::Kind::sectionDivider) {
        expected["expanded"] = b.expanded; // kept only by group records
    }
    expectFacts(layerFacts(b), expected);
    if (a.hasLayerMask) {
        expectFacts(maskFacts(b), maskFacts(a));
    }
    EXPECT_EQ(a.layerBlendingRanges, b.layerBlendingRanges);
    ASSERT_EQ(a.taggedData.size(), b.taggedData.size());
    for (auto ia = a.taggedData.begin(), ib = b.taggedData.begin(); ia != a.taggedData.end(); ++ia, ++ib) {
        EXPECT_EQ(ia->first, ib->first);
        EXPECT_EQ(paddedTo4(ia->second), ib->second);
    }
    EXPECT_EQ(a.uninterpretedBlocks, b.uninterpretedBlocks);
    EXPECT_EQ(bytesOf(a.contentImage()), bytesOf(b.contentImage()));
    EXPECT_EQ(bytesOf(a.maskImage()), bytesOf(b.maskImage()));
}

// What every written document keeps: the canvas, the kept blocks, every layer and every alpha
// channel's pixels (their names are compared by the callers: a written name gains a terminator).
inline void expectSameDocument(const PSDWrapper& a, const PSDWrapper& b)
{
    ASSERT_EQ(b.bigFile, a.bigFile);
    ASSERT_EQ(b.bitDepth, a.bitDepth);
    EXPECT_EQ(b.imageWidth, a.imageWidth);
    EXPECT_EQ(b.imageHeight, a.imageHeight);
    EXPECT_EQ(b.uninterpretedBlocks, a.uninterpretedBlocks);
    EXPECT_EQ(b.patternData, a.patternData);
    EXPECT_EQ(b.minimumNewLayerID, a.minimumNewLayerID);
    ASSERT_EQ(b.layers.size(), a.layers.size());
    for (std::size_t i = 0; i < a.layers.size(); ++i) {
        SCOPED_TRACE("layer " + std::to_string(i));
        expectSameLayer(*a.layers[i], *b.layers[i], a.bitDepth);
    }
    const std::size_t alphas = a.alphaChannels ? a.alphaChannels->size() : 0;
    ASSERT_EQ(b.alphaChannels ? b.alphaChannels->size() : 0, alphas);
    for (std::size_t i = 0; i < alphas; ++i) {
        EXPECT_EQ(bytesOf((*b.alphaChannels)[i]->image), bytesOf((*a.alphaChannels)[i]->image));
    }
}

} // namespace psdkit::testing
