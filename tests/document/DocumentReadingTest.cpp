// Reading the sections of a document: header, colour mode data, image resources, layer and mask
// information framing (8-byte block lengths in big files included), and the composite image data.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// What real files do not show: repeated blocks (the last wins), resolutions just under a whole
// number, unknown blocks kept with their names, a section end that wins over its last block; the
// corpus tests check every field of real files.
TEST(DocumentResourcesTest, RepeatedBlocksRoundedResolutionKeptBlocksAndTheSectionEnd)
{
    FileSections s;
    s.resources = [](ByteBuilder& b) {
        b.begin();
        appendResource(b, 1005, ByteBuilder().u32(0x00480000).i16(1).i16(3).u32(0x0047FFFF).i16(2).i16(1));
        appendResource(b, 1069, ByteBuilder().u16(0));
        appendResource(b, 1069, ByteBuilder().u16(2).i32(7).i32(9));
        appendResource(b, 1006, ByteBuilder().pascal("old"));
        appendResource(b, 1006, ByteBuilder().pascal("a").pascal("bc"));
        appendResource(b, 4000, {1, 2, 3}, "ab");
        appendResource(b, 4001, {9}, "");
        b.end();
    };
    PSDWrapper doc(buildFile(s));
    EXPECT_EQ(doc.vRes, 72.0);
    EXPECT_EQ(doc.selectedLayerIDs, (std::vector<std::int64_t>{7, 9}));
    EXPECT_EQ(doc.alphaChannelsPascalNames, (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(doc.imageResources,
              (std::vector<PSDImageResourceBlock>{{4000, "ab", {1, 2, 3}}, {4001, "", {9}}}));

    // A section that ends inside its last block's pad byte: reading goes on at the declared end.
    const PSDWrapper padded(
        buildFile({.resources = [](ByteBuilder& b) { appendResource(b.u32(12), 1042, {0}); }}));
    EXPECT_FALSE(padded.enableLayerEffects);
}

TEST(DocumentLayerSectionTest, EmptySectionsAndDocumentBlocks)
{
    FileSections s;
    s.layersAndMasks = [](ByteBuilder& b) {
        b.begin();
        b.u32(0);                // no layer information
        b.u32(3).raw({1, 2, 3}); // global layer mask
        b.ascii("8BIM").ascii("lnk2").u32(5).raw({1, 2, 3, 4, 5}).zeros(3);
        b.ascii("8BIM").ascii("Patt").u32(2).raw({1, 2}).zeros(2);
        b.ascii("8BIM").ascii("Pat3").u32(1).raw({7}).zeros(3);
        b.end();
    };
    PSDWrapper doc(buildFile(s));
    EXPECT_TRUE(doc.layers.empty());
    EXPECT_EQ(doc.globalLayerMaskData, (V{1, 2, 3}));
    EXPECT_EQ(doc.patternData, (V{7}));
    EXPECT_TRUE(doc.additionalLayerAndMaskInfo.empty());
    EXPECT_TRUE(doc.uninterpretedBlocks.empty());

    const PSDReadOptions keepAll{.keepUnknownBlocks = true};
    PSDWrapper kept(buildFile(s), keepAll);
    const std::vector<PSDRawBlock> expected = {{"8BIM", "lnk2", false, PSDSharedBytes(V{1, 2, 3, 4, 5})},
                                               {"8BIM", "Patt", false, PSDSharedBytes(V{1, 2})},
                                               {"8BIM", "Pat3", false, PSDSharedBytes(V{7})}};
    EXPECT_EQ(kept.uninterpretedBlocks, expected);
    EXPECT_EQ(kept.patternData, (V{7}));
}

V withHeader(HeaderFields header)
{
    return buildFile({.header = header});
}
V withResources(const V& section)
{
    return buildFile({.resources = [=](ByteBuilder& b) { b.raw(section); }});
}
V withLayersAndMasks(const V& section)
{
    return buildFile({.layersAndMasks = [=](ByteBuilder& b) { b.raw(section); }});
}
V withImageData(HeaderFields header, const V& data)
{
    return buildFile({.header = header, .imageData = [=](ByteBuilder& b) { b.raw(data); }});
}
// A resource section holding one block: its signature, ID, empty name, then `rest`.
V oneResource(const char* signature, std::int64_t id, const V& rest)
{
    return ByteBuilder().u32(8 + rest.size()).ascii(signature).i16(id).u16(0).raw(rest);
}

// Every section's malformed forms. Raw and run-length planes of real files are checked against an
// independent reader by the corpus tests; the fuzz seeds replay damaged real files.
TEST(DocumentReadingTest, MalformedFilesAreRefusedWithTheirError)
{
    const auto corrupt = PSDError::readCorruptFile;
    const auto end = PSDError::readUnexpectedEndOfFile;
    const auto parameter = PSDError::readParameterError;
    const auto huge = HeaderFields{.height = 300000, .width = 300000};
    const struct {
        const char* what;
        V file;
        std::error_code expected;
    } cases[] = {
        {"nothing", {}, end},
        {"signature", ByteBuilder().ascii("8BPX").zeros(40), corrupt},
        {"reserved bytes cut short", ByteBuilder().ascii("8BPS").i16(1).zeros(3), end},
        {"version 3", withHeader({.version = 3}), PSDError::readUnknownFileVersion},
        {"grayscale", withHeader({.mode = 1}), PSDError::readUnsupportedColorMode},
        {"colour mode 5", withHeader({.mode = 5}), corrupt},
        {"colour mode -1", withHeader({.mode = -1}), corrupt},
        {"depth 7", withHeader({.depth = 7}), corrupt},
        {"depth 1", withHeader({.depth = 1}), corrupt},
        {"resource signature", withResources(oneResource("8BIX", 4000, {0, 0, 0, 0})), corrupt},
        {"empty ICC profile", withResources(oneResource("8BIM", 1039, {0, 0, 0, 0})), corrupt},
        {"damaged ICC profile", withResources(oneResource("8BIM", 1039, {0, 0, 0, 4, 1, 2, 3, 4})), corrupt},
        {"negative resource size", withResources(oneResource("8BIM", 4000, {0xFF, 0xFF, 0xFF, 0xFC})),
         parameter},
        {"negative odd resource size", withResources(oneResource("8BIM", 1036, {0xFF, 0xFF, 0xFF, 0xFD})),
         parameter},
        // An interpreted resource with a negative odd size: its pad byte must not be skipped.
        {"negative odd size, interpreted",
         withResources(oneResource("8BIM", 1024, {0xFF, 0xFF, 0xFF, 0xFD, 0, 0})), parameter},
        {"negative resource section", withResources(ByteBuilder().i32(-8)), corrupt},
        {"resource overrunning the file",
         withResources(ByteBuilder().u32(100).ascii("8BIM").i16(4000).u16(0).u32(200)), end},
        {"document block signature",
         withLayersAndMasks(ByteBuilder().u32(20).u32(0).u32(0).ascii("8BIXPatt").u32(0)), corrupt},
        {"negative layer and mask section", withLayersAndMasks(ByteBuilder().i32(-4)), corrupt},
        {"image compression 2", withImageData({}, ByteBuilder().u16(2).zeros(20)), corrupt},
        {"row counts cut short", withImageData({}, ByteBuilder().u16(1).i16(2)), end},
        {"negative row count",
         withImageData({.height = 1, .width = 1}, ByteBuilder().u16(1).i16(-2).i16(1).i16(1)), parameter},
        {"negative channel count", withImageData({.channels = -3}, ByteBuilder().u16(0)), corrupt},
        {"negative height", withImageData({.height = -1}, ByteBuilder().u16(1)), corrupt},
        {"huge raw canvas, few bytes", withImageData(huge, ByteBuilder().u16(0).zeros(1000)), end},
        {"huge run-length canvas, few bytes", withImageData(huge, ByteBuilder().u16(1).zeros(1000)), end},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(thrownError([&] { PSDWrapper doc(c.file); }), c.expected) << c.what;
    }
    // What the reader lets pass: reserved bytes that are not zero, an unknown compression without
    // channels.
    V reserved = buildFile({});
    reserved[6] = 0xAA;
    EXPECT_EQ(thrownError([&] { PSDWrapper doc(reserved); }), nothingThrown());
    EXPECT_EQ(thrownError([] { PSDWrapper doc(withImageData({.channels = 0}, ByteBuilder().u16(3))); }),
              nothingThrown());
}

TEST(DocumentModelTest, AuxiliaryFileDataGoesBackAndPresentButEmptyResourcesReplace)
{
    PSDWrapper doc;
    doc.imageResources = {{4000, "", {1}}};
    doc.globalLayerMaskData = V{1};
    const std::any kept = doc.auxiliaryFileData();
    doc.imageResources.clear();
    doc.setAuxiliaryFileData(kept);
    EXPECT_EQ(doc.imageResources.size(), 1u);
    doc.setAuxiliaryFileData(PSDWrapper().auxiliaryFileData());
    EXPECT_EQ(doc.imageResources.size(), 0u);
    EXPECT_FALSE(doc.globalLayerMaskData);
    doc.setAuxiliaryFileData(std::any(42)); // ignored
}

// Big files whose document-level "8BIM" blocks carry 8-byte lengths, as widely used editors write
// them: read by the second attempt, only for big files, and never at the cost of a clean failure.

// A 16-bit layer information body: `count` empty-bounds records named "a", "b", …
V layerInformation(int count, const std::string& blendSignature = "8BIM")
{
    ByteBuilder b;
    b.i16(count);
    for (int i = 0; i < count; ++i) {
        b.i32(0).i32(0).i32(0).i32(0).i16(1).i16(0).i64(2);
        b.ascii(blendSignature).ascii("norm").u8(255).u8(0).u8(0).u8(0);
        b.begin().u32(0).u32(0).pascal(std::string(1, static_cast<char>('a' + i)), 4).end();
    }
    for (int i = 0; i < count; ++i) {
        b.u16(0);
    }
    return b.bytes();
}

// A 16-bit file (PSB unless `big` is false) whose layers sit in an "8BIM" "Lr16" block written
// with a `lengthWidth`-byte length, followed by an "8BIM" "Patt" block.
V fileWithLr16(bool big, int lengthWidth, const V& body)
{
    FileSections s;
    s.header = {.version = big ? 2 : 1, .depth = 16};
    s.layersAndMasks = [&](ByteBuilder& b) {
        b.begin(big).begin(big).end().u32(0); // no layer information, no global mask
        b.ascii("8BIM").ascii("Lr16").begin(lengthWidth == 8).raw(body).end();
        b.zeros((4 - body.size() % 4) % 4);
        b.ascii("8BIM").ascii("Patt").u32(2).raw({5, 6}).zeros(2);
        b.end();
    };
    return buildFile(s);
}

TEST(BigFileBlocksTest, EightByteLengthsReadInBigFilesOnlyWriteBackWithLongSignaturesAndFailCleanly)
{
    PSDWrapper doc(fileWithLr16(true, 8, layerInformation(3)));
    ASSERT_EQ(doc.layers.size(), 3u);
    EXPECT_EQ(doc.layers[2]->name, "c");
    EXPECT_EQ(doc.layers[0]->bitDepth, 16);
    EXPECT_EQ(doc.patternData, (V{5, 6}));
    EXPECT_EQ(thrownError([] { PSDWrapper d(fileWithLr16(false, 8, layerInformation(3))); }),
              PSDError::readUnknownError);
    const PSDWrapper rule(fileWithLr16(true, 4, layerInformation(2)));
    EXPECT_EQ(rule.layers.size(), 2u) << "files that follow the rule read as before";

    const auto composite = doc.compositeImage();
    ASSERT_TRUE(composite);
    const V written = doc.serializedRepresentationWithCompositeImage(composite.get());
    EXPECT_EQ(occurrences(written, ByteBuilder().ascii("8B64Lr16")), 1u);
    EXPECT_EQ(PSDWrapper(written).layers.size(), 3u);

    // Failing both ways reports the first attempt's error: under the rule the block overruns
    // (readUnknownError); with the 8-byte length its record has a bad blend signature (readCorruptFile).
    EXPECT_EQ(thrownError([] { PSDWrapper d(fileWithLr16(true, 8, layerInformation(1, "8BIX"))); }),
              PSDError::readUnknownError);

    FileSections hostile;
    hostile.header = {.version = 2, .depth = 16};
    hostile.layersAndMasks = [](ByteBuilder& b) {
        b.begin(true).i64(0).u32(0);
        b.ascii("8BIM").ascii("Lr16").i64(0x7FFFFFFFFFFFFFF0).raw({0xFF, 0xFF, 0, 0});
        b.end();
    };
    const V file = buildFile(hostile);
    const auto code = thrownError([&] { PSDWrapper d(file); });
    EXPECT_TRUE(code == PSDError::readUnexpectedEndOfFile || code == PSDError::readCorruptFile ||
                code == PSDError::readUnknownError)
        << code;
}

} // namespace
} // namespace psdkit
