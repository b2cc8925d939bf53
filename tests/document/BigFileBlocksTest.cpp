// Big files whose document-level "8BIM" blocks carry 8-byte lengths, as widely used editors write
// them: read by the second attempt, only for big files, and never at the cost of a clean failure.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

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

TEST(BigFileBlocksTest, EightByteLengthsReadInBigFilesOnlyAndWriteBackWithLongSignatures)
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
}

TEST(BigFileBlocksTest, FailingBothWaysReportsTheFirstAttemptsError)
{
    // Under the rule the block overruns (readUnknownError); with the 8-byte length its record has a
    // bad blend signature (readCorruptFile).
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
