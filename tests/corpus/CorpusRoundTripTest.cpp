// Every RGB corpus file, read, written with its own composite and read again, keeps every field
// the writer keeps, and every pixel.
#include <gtest/gtest.h>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "support/DocumentExpectations.hpp"

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

// The bytes after the image resources: the layer and mask information and the image data. (The
// metadata packet among the resources is re-encoded by the metadata library on every write.)
V afterResources(const V& file)
{
    PSDScanner scanner(file);
    scanner.seek(26);
    scanner.skip(scanner.scanInt32());
    scanner.skip(scanner.scanInt32());
    return V(file.begin() + scanner.offset(), file.end());
}

class CorpusRoundTripTest : public ::testing::TestWithParam<std::string> {};

// Read keeping every block, written with its own composite and read again: every field, kept block
// and pixel survives, also after three successive rewrites (a layerless document keeps its channel
// count and alpha channels), and rewriting what was read back gives the same bytes again.
TEST_P(CorpusRoundTripTest, WrittenAndReadAgainKeepsEverything)
{
    PSDReadOptions keepAll;
    keepAll.keepUnknownBlocks = true;
    const V bytes = readCorpusFile(GetParam());
    PSDWrapper original(bytes, keepAll);
    const auto composite = original.compositeImage();
    ASSERT_TRUE(composite);
    const V written = original.serializedRepresentationWithCompositeImage(composite.get());
    EXPECT_EQ(original.serializedRepresentationWithCompositeImage(composite.get()), written);

    V current = written;
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE("rewrite " + std::to_string(round));
        PSDWrapper back(current, keepAll);
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
        EXPECT_EQ(back.uninterpretedBlocks, original.uninterpretedBlocks);
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
        const auto alphas = [](const PSDWrapper& doc) {
            return doc.alphaChannels ? *doc.alphaChannels : std::vector<std::shared_ptr<PSDAlphaChannel>>{};
        };
        ASSERT_EQ(alphas(back).size(), alphas(original).size());
        for (std::size_t i = 0; i < alphas(back).size(); ++i) {
            EXPECT_EQ(alphas(back)[i]->name, alphas(original)[i]->name);
            EXPECT_EQ(bytesOf(alphas(back)[i]->image), bytesOf(alphas(original)[i]->image));
        }
        const auto backComposite = back.compositeImage();
        const V again = back.serializedRepresentationWithCompositeImage(backComposite.get());
        if (round == 1) {
            EXPECT_TRUE(afterResources(again) == afterResources(written))
                << "rewriting the output gives the same "
                   "layers, blocks and image data";
        }
        current = again;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTripTest, ::testing::ValuesIn(rgbCorpusFiles()),
                         CorpusTestName());

} // namespace
} // namespace psdkit
