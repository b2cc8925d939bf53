#pragma once
// Expectations shared by the round-trip tests: a document or layer read back equals the one written,
// field by field and pixel by pixel, up to what writing changes by rule.
#include <gtest/gtest.h>

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

inline void expectSameLayer(const PSDLayerWrapper& a, const PSDLayerWrapper& b, std::int64_t depth)
{
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.layerID, b.layerID);
    EXPECT_EQ(a.colorLabel, b.colorLabel);
    EXPECT_EQ(a.type(), b.type());
    EXPECT_EQ(a.subtype, b.subtype);
    EXPECT_EQ(a.selected, b.selected);
    EXPECT_EQ(a.contentsRect, b.contentsRect);
    EXPECT_EQ(writtenAsNormal(a.blendMode, depth) ? PSDFourCharCode("norm") : a.blendMode, b.blendMode);
    EXPECT_EQ(a.opacity, b.opacity);
    EXPECT_EQ(a.fillOpacity, b.fillOpacity);
    EXPECT_EQ(a.clipping, b.clipping);
    EXPECT_EQ(a.lockFlags, b.lockFlags);
    EXPECT_EQ(a.visible, b.visible);
    EXPECT_EQ(a.pixelDataIrrelevantToAppearanceOfDocument, b.pixelDataIrrelevantToAppearanceOfDocument);
    EXPECT_EQ(a.hasLayerMask, b.hasLayerMask);
    if (a.type().kind() == PSDLayerType::Kind::group ||
        a.type().kind() == PSDLayerType::Kind::sectionDivider) {
        EXPECT_EQ(a.expanded, b.expanded);
    }
    if (a.hasLayerMask) {
        EXPECT_EQ(a.maskRect, b.maskRect);
        EXPECT_EQ(a.maskDefaultColor, b.maskDefaultColor);
        EXPECT_EQ(a.maskIsPositionedRelativeToLayer, b.maskIsPositionedRelativeToLayer);
        EXPECT_EQ(a.maskDisabled, b.maskDisabled);
        EXPECT_EQ(a.maskCameFromRenderingOtherData, b.maskCameFromRenderingOtherData);
        EXPECT_EQ(a.maskHasUserMaskDensity, b.maskHasUserMaskDensity);
        EXPECT_EQ(a.userMaskDensity, b.userMaskDensity);
        EXPECT_EQ(a.maskHasUserMaskFeather, b.maskHasUserMaskFeather);
        EXPECT_EQ(a.userMaskFeather, b.userMaskFeather);
        EXPECT_EQ(a.maskHasVectorMaskDensity, b.maskHasVectorMaskDensity);
        EXPECT_EQ(a.vectorMaskDensity, b.vectorMaskDensity);
        EXPECT_EQ(a.maskHasVectorMaskFeather, b.maskHasVectorMaskFeather);
        EXPECT_EQ(a.vectorMaskFeather, b.vectorMaskFeather);
        EXPECT_EQ(a.hasRealFlags, b.hasRealFlags);
        EXPECT_EQ(a.realMaskRect, b.realMaskRect);
        EXPECT_EQ(a.realMaskDefaultColor, b.realMaskDefaultColor);
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
