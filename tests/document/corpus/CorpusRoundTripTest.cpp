// Every RGB corpus file, read, written with its own composite and read again, keeps every field
// the writer keeps, and every pixel; and it is written to the same bytes whatever was read before.
#include <gtest/gtest.h>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "support/DocumentExpectations.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

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
    const PSDReadOptions keepAll{.keepUnknownBlocks = true};
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
        expectSameDocument(original, back);
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
        EXPECT_NEAR(back.hRes, original.hRes, 1.0 / 65535);
        EXPECT_NEAR(back.vRes, original.vRes, 1.0 / 65535);
        EXPECT_EQ(back.hResUnit, original.hResUnit);
        EXPECT_EQ(back.vResUnit, original.vResUnit);
        EXPECT_EQ(back.colorModeData, original.colorModeData);
        EXPECT_EQ(back.colorSpace.iccData(), original.colorSpace.iccData());
        EXPECT_EQ(back.imageResources, original.imageResources);
        EXPECT_EQ(back.globalLayerMaskData, original.globalLayerMaskData);
        EXPECT_EQ(back.selectedLayerIDs, original.selectedLayerIDs);
        EXPECT_EQ(back.globalLightAngle, original.globalLightAngle);
        EXPECT_EQ(back.globalLightAltitude, original.globalLightAltitude);
        EXPECT_EQ(back.enableLayerEffects, original.enableLayerEffects);
        EXPECT_EQ(bytesOf(back.compositeImage()), bytesOf(composite));
        for (std::size_t i = 0; back.alphaChannels && i < back.alphaChannels->size(); ++i) {
            EXPECT_EQ((*back.alphaChannels)[i]->name, (*original.alphaChannels)[i]->name);
        }
        const auto backComposite = back.compositeImage();
        const V again = back.serializedRepresentationWithCompositeImage(backComposite.get());
        if (round == 1) {
            EXPECT_TRUE(afterResources(again) == afterResources(written))
                << "rewriting the output gives the same layers, blocks and image data";
        }
        current = again;
    }
}

// The bytes depend on the document alone, not on the documents the process read in between (one
// whose XMP has the prefix "xap", one with "xmp"). Whichever sink takes them is checked by the sink
// tests, writing on several threads by the reading-mode tests.
TEST_P(CorpusRoundTripTest, SameBytesWhateverWasReadBefore)
{
    const auto written = [](const V& bytes) {
        PSDWrapper document(bytes);
        const auto composite = document.compositeImage();
        return document.serializedRepresentationWithCompositeImage(composite.get());
    };
    const V expected = written(readCorpusFile(GetParam()));
    const PSDWrapper xap(readCorpusFile("psdtools-clipping-mask.psd"));
    const PSDWrapper xmp(readCorpusFile("oiio-psd-Layers_16bit_RGB.psd"));
    EXPECT_TRUE(written(readCorpusFile(GetParam())) == expected);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTripTest, ::testing::ValuesIn(rgbCorpusFileNames()),
                         CorpusTestName());

} // namespace
} // namespace psdkit
