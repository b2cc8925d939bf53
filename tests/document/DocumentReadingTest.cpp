// Reading the sections of a document: header, colour mode data, image resources, layer and mask
// information framing, and the composite image data.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

std::function<void(ByteBuilder&)> resources(std::function<void(ByteBuilder&)> blocks)
{
    return [blocks](ByteBuilder& b) {
        b.begin();
        blocks(b);
        b.end();
    };
}

TEST(DocumentHeaderTest, RefusesWhatItCannotRead)
{
    struct Case {
        HeaderFields header;
        std::error_code expected;
    };
    const Case cases[] = {
        {{.version = 3}, PSDError::readUnknownFileVersion}, {{.mode = 1}, PSDError::readUnsupportedColorMode},
        {{.mode = 4}, PSDError::readUnsupportedColorMode},  {{.mode = 5}, PSDError::readCorruptFile},
        {{.mode = -1}, PSDError::readCorruptFile},          {{.depth = 7}, PSDError::readCorruptFile},
        {{.depth = 1}, PSDError::readCorruptFile},
    };
    for (const auto& c : cases) {
        FileSections s;
        s.header = c.header;
        const V file = buildFile(s);
        EXPECT_EQ(thrownError([&] { PSDWrapper doc(file); }), c.expected)
            << c.header.version << " " << c.header.mode;
    }
    EXPECT_EQ(thrownError([] { PSDWrapper doc(std::span<const std::uint8_t>{}); }),
              PSDError::readUnexpectedEndOfFile);
    const V notPsd = ByteBuilder().ascii("8BPX").zeros(40).bytes();
    EXPECT_EQ(thrownError([&] { PSDWrapper doc(notPsd); }), PSDError::readCorruptFile);
    const V shortReserved = ByteBuilder().ascii("8BPS").i16(1).zeros(3).bytes();
    EXPECT_EQ(thrownError([&] { PSDWrapper doc(shortReserved); }), PSDError::readUnexpectedEndOfFile);
    V reserved = buildFile({});
    reserved[6] = 0xAA;
    EXPECT_EQ(thrownError([&] { PSDWrapper doc(reserved); }), nothingThrown())
        << "reserved bytes are not checked";
}

// What real files do not show: repeated blocks (the last wins), resolutions just under a whole
// number, unknown blocks kept with their names; the corpus tests check every field of real files.
TEST(DocumentResourcesTest, RepeatedBlocksRoundedResolutionAndKeptBlocks)
{
    FileSections s;
    s.resources = resources([](ByteBuilder& b) {
        appendResource(b, 1005, ByteBuilder().u32(0x00480000).i16(1).i16(3).u32(0x0047FFFF).i16(2).i16(1));
        appendResource(b, 1069, ByteBuilder().u16(0));
        appendResource(b, 1069, ByteBuilder().u16(2).i32(7).i32(9));
        appendResource(b, 1006, ByteBuilder().pascal("old"));
        appendResource(b, 1006, ByteBuilder().pascal("a").pascal("bc"));
        appendResource(b, 4000, {1, 2, 3}, "ab");
        appendResource(b, 4001, {9}, "");
    });
    PSDWrapper doc(buildFile(s));
    EXPECT_EQ(doc.vRes, 72.0);
    EXPECT_EQ(doc.selectedLayerIDs, (std::vector<std::int64_t>{7, 9}));
    EXPECT_EQ(doc.alphaChannelsPascalNames, (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(doc.imageResources,
              (std::vector<PSDImageResourceBlock>{{4000, "ab", {1, 2, 3}}, {4001, "", {9}}}));
}

TEST(DocumentResourcesTest, SectionEndWinsOverTheLastBlockAndBadBlocksFail)
{
    FileSections s;
    // The section ends inside the block's pad byte: reading goes on at the declared end.
    s.resources = [](ByteBuilder& b) {
        b.u32(12);
        appendResource(b, 1042, {0});
    };
    PSDWrapper doc(buildFile(s));
    EXPECT_FALSE(doc.enableLayerEffects);

    struct Case {
        std::function<void(ByteBuilder&)> resources;
        std::error_code expected;
    };
    const Case cases[] = {
        {resources([](ByteBuilder& b) { b.ascii("8BIX").i16(4000).u16(0).u32(0); }),
         PSDError::readCorruptFile},
        {resources([](ByteBuilder& b) { appendResource(b, 1039, {}); }), PSDError::readCorruptFile},
        {resources([](ByteBuilder& b) {
             appendResource(b, 1039, {1, 2, 3, 4});
         }),
         PSDError::readCorruptFile},
        {resources([](ByteBuilder& b) { b.ascii("8BIM").i16(4000).u16(0).i32(-4); }),
         PSDError::readParameterError},
        {resources([](ByteBuilder& b) { b.ascii("8BIM").i16(1036).u16(0).i32(-3); }),
         PSDError::readParameterError},
        // An interpreted resource with a negative odd size: its pad byte must not be skipped.
        {resources([](ByteBuilder& b) { b.ascii("8BIM").i16(1024).u16(0).i32(-3).u16(0); }),
         PSDError::readParameterError},
        {[](ByteBuilder& b) { b.i32(-8); }, PSDError::readCorruptFile},
        {[](ByteBuilder& b) { b.u32(100).ascii("8BIM").i16(4000).u16(0).u32(200); },
         PSDError::readUnexpectedEndOfFile},
    };
    for (const auto& c : cases) {
        FileSections bad;
        bad.resources = c.resources;
        const V file = buildFile(bad);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected);
    }
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

    FileSections badSignature;
    badSignature.layersAndMasks = [](ByteBuilder& b) {
        b.begin().u32(0).u32(0).ascii("8BIX").ascii("Patt").u32(0).end();
    };
    EXPECT_EQ(thrownError([&] { PSDWrapper d(buildFile(badSignature)); }), PSDError::readCorruptFile);
    FileSections negative;
    negative.layersAndMasks = [](ByteBuilder& b) { b.i32(-4); };
    EXPECT_EQ(thrownError([&] { PSDWrapper d(buildFile(negative)); }), PSDError::readCorruptFile);
}

// Raw and run-length planes of real files are checked against an independent reader by the corpus
// tests; these are the planes that must be refused.
TEST(DocumentImageDataTest, RefusedCompressionsSizesAndCounts)
{
    struct Case {
        HeaderFields header;
        std::function<void(ByteBuilder&)> data;
        std::error_code expected;
    };
    const Case cases[] = {
        {{}, [](ByteBuilder& b) { b.u16(2).zeros(20); }, PSDError::readCorruptFile},
        {{}, [](ByteBuilder& b) { b.u16(4); }, PSDError::readCorruptFile},
        {{.channels = 0}, [](ByteBuilder& b) { b.u16(3); }, testing::nothingThrown()},
        {{}, [](ByteBuilder& b) { b.u16(1).i16(2); }, PSDError::readUnexpectedEndOfFile},
        {{.height = 1, .width = 1},
         [](ByteBuilder& b) { b.u16(1).i16(-2).i16(1).i16(1); },
         PSDError::readParameterError},
        {{.channels = -3}, [](ByteBuilder& b) { b.u16(0); }, PSDError::readCorruptFile},
        {{.height = -1}, [](ByteBuilder& b) { b.u16(1); }, PSDError::readCorruptFile},
        {{.height = 300000, .width = 300000},
         [](ByteBuilder& b) { b.u16(0).zeros(1000); },
         PSDError::readUnexpectedEndOfFile},
        {{.height = 300000, .width = 300000},
         [](ByteBuilder& b) { b.u16(1).zeros(1000); },
         PSDError::readUnexpectedEndOfFile},
    };
    for (const auto& c : cases) {
        FileSections bad;
        bad.header = c.header;
        bad.imageData = c.data;
        const V file = buildFile(bad);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected);
    }
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

} // namespace
} // namespace psdkit
