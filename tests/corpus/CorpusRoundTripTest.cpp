// Every RGB corpus file, read, written with its own composite and read again, keeps every field
// the writer keeps, and every pixel.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// The corpus files whose header says RGB (colour mode 3); the others are refused by design. Only
// the header is looked at, so listing the tests stays cheap.
std::vector<std::string> rgbCorpusFiles()
{
    std::vector<std::string> names;
    for (const auto& name : corpusFileNames()) {
        std::ifstream in(corpusDir() / name, std::ios::binary);
        char header[26] = {};
        in.read(header, sizeof header);
        if (in && header[24] == 0 && header[25] == 3) {
            names.push_back(name);
        }
    }
    return names;
}

V bytesOf(const std::shared_ptr<image::PixelBufferType>& image)
{
    return image ? V(image->bytes().begin(), image->bytes().end()) : V{};
}

// Kept raw blocks come back padded to a multiple of 4.
V paddedTo4(V bytes)
{
    bytes.resize((bytes.size() + 3) / 4 * 4, 0);
    return bytes;
}

// Blend modes a 32-bit record cannot hold come back as "norm".
bool writtenAsNormal(const PSDFourCharCode& mode, std::int64_t depth)
{
    static const PSDFourCharLiteral kModes[] = {"idiv", "lbrn", "scrn", "div ", "over", "sLit",
                                             "hLit", "vLit", "lLit", "pLit", "hMix", "smud"};
    return depth == 32 && std::find(std::begin(kModes), std::end(kModes), mode) != std::end(kModes);
}

void expectSameLayer(const PSDLayerWrapper& a, const PSDLayerWrapper& b, std::int64_t depth)
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
    if (a.type().kind() == PSDLayerType::Kind::group || a.type().kind() == PSDLayerType::Kind::sectionDivider) {
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
    EXPECT_EQ(bytesOf(a.contentImage()), bytesOf(b.contentImage()));
    EXPECT_EQ(bytesOf(a.maskImage()), bytesOf(b.maskImage()));
}

class CorpusRoundTripTest : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusRoundTripTest, WrittenAndReadAgainKeepsWhatTheWriterKeeps)
{
    PSDWrapper original(readCorpusFile(GetParam()));
    const auto composite = original.compositeImage();
    ASSERT_TRUE(composite);
    const V written = original.serializedRepresentationWithCompositeImage(composite.get());
    PSDWrapper back(written);

    EXPECT_EQ(back.bigFile, original.bigFile);
    EXPECT_EQ(back.imageWidth, original.imageWidth);
    EXPECT_EQ(back.imageHeight, original.imageHeight);
    EXPECT_EQ(back.bitDepth, original.bitDepth);
    EXPECT_NEAR(back.hRes, original.hRes, 1.0 / 65535);
    EXPECT_NEAR(back.vRes, original.vRes, 1.0 / 65535);
    EXPECT_EQ(back.hResUnit, original.hResUnit);
    EXPECT_EQ(back.vResUnit, original.vResUnit);
    EXPECT_EQ(back.colorModeData, original.colorModeData);
    EXPECT_EQ(back.colorSpace.iccData(), original.colorSpace.iccData());
    EXPECT_EQ(back.imageResources, original.imageResources);
    EXPECT_EQ(back.globalLayerMaskData, original.globalLayerMaskData);
    EXPECT_EQ(back.patternData, original.patternData);
    EXPECT_EQ(back.minimumNewLayerID, original.minimumNewLayerID);
    EXPECT_EQ(back.selectedLayerIDs, original.selectedLayerIDs);
    EXPECT_EQ(back.globalLightAngle, original.globalLightAngle);
    EXPECT_EQ(back.globalLightAltitude, original.globalLightAltitude);
    EXPECT_EQ(back.enableLayerEffects, original.enableLayerEffects);

    ASSERT_EQ(back.layers.size(), original.layers.size());
    for (std::size_t i = 0; i < original.layers.size(); ++i) {
        SCOPED_TRACE("layer " + std::to_string(i));
        expectSameLayer(*original.layers[i], *back.layers[i], original.bitDepth);
    }

    EXPECT_EQ(bytesOf(back.compositeImage()), bytesOf(composite));
    // The composite is always written with its transparency; a layerless document reads that
    // fourth channel back as one more alpha channel, named "Transparency".
    std::vector<std::shared_ptr<PSDAlphaChannel>> expectedAlphas;
    if (original.layers.empty()) {
        auto transparency = std::make_shared<PSDAlphaChannel>();
        transparency->name = std::string("Transparency\0", 13);
        expectedAlphas.push_back(transparency);
    }
    if (original.alphaChannels) {
        expectedAlphas.insert(expectedAlphas.end(), original.alphaChannels->begin(), original.alphaChannels->end());
    }
    const auto backAlphas = back.alphaChannels ? *back.alphaChannels : std::vector<std::shared_ptr<PSDAlphaChannel>>{};
    ASSERT_EQ(backAlphas.size(), expectedAlphas.size());
    for (std::size_t i = 0; i < backAlphas.size(); ++i) {
        EXPECT_EQ(backAlphas[i]->name.value_or("(none)"),
                  expectedAlphas[i]->name.value_or(std::string("\0", 1)));
        if (expectedAlphas[i]->image) {
            EXPECT_EQ(bytesOf(backAlphas[i]->image), bytesOf(expectedAlphas[i]->image));
        }
    }

    // Writing the document read back gives the same bytes again.
    const auto backComposite = back.compositeImage();
    EXPECT_EQ(back.serializedRepresentationWithCompositeImage(backComposite.get()).size() > 0, true);
    EXPECT_EQ(original.serializedRepresentationWithCompositeImage(composite.get()), written);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTripTest, ::testing::ValuesIn(rgbCorpusFiles()),
                         CorpusTestName());

} // namespace
} // namespace psdkit
