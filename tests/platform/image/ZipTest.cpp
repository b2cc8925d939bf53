#include "psdkit/platform/image/Zip.hpp"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "platform/image/ImageTestSupport.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::detail {
namespace {
using image::testing::mixedBytes;
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;

TEST(ZipTest, DeflatedStreamsInflateToTheSameBytesAtEveryLevel)
{
    for (std::size_t n : {0u, 1u, 100u, 70000u}) {
        const V plane = mixedBytes(n, static_cast<std::uint32_t>(n));
        for (int level : {0, 1, zipCompressionLevel, 6, 12}) {
            const V stream = zlibDeflate(plane, level);
            V out(n);
            zlibInflate(stream, out);
            EXPECT_EQ(out, plane) << n << " bytes at level " << level;
        }
    }
}

TEST(ZipTest, StreamsThatDoNotInflateToExactlyThePlaneAreCorrupt)
{
    const V plane = mixedBytes(1000, 7);
    const V stream = zlibDeflate(plane);
    const auto changed = [&](std::size_t at, std::uint8_t value) {
        V copy = stream;
        copy.at(at) = value;
        return copy;
    };
    const V badChecksum = changed(stream.size() - 1, static_cast<std::uint8_t>(stream.back() ^ 1));
    const V badHeader = changed(0, 0x79); // not the deflate method
    V trailing(stream.size() + 1, 0);
    std::copy(stream.begin(), stream.end(), trailing.begin());
    struct Case {
        const char* what;
        V in;
        std::size_t planeBytes;
    };
    const Case cases[] = {
        {"plane larger than the stream's", stream, 1001},
        {"plane smaller than the stream's", stream, 999},
        {"cut inside the checksum", V(stream.begin(), stream.end() - 2), 1000},
        {"cut inside the data",
         V(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(stream.size() / 2)), 1000},
        {"wrong checksum", badChecksum, 1000},
        {"bytes after the stream", trailing, 1000},
        {"not a zlib header", badHeader, 1000},
        {"no stream for a non-empty plane", V{}, 1},
        {"garbage", V{1, 2, 3, 4, 5, 6, 7, 8}, 8},
    };
    for (const Case& c : cases) {
        V out(c.planeBytes);
        EXPECT_EQ(thrownError([&] { zlibInflate(c.in, out); }), image::ImageError::corruptZip) << c.what;
    }
    V empty;
    EXPECT_NO_THROW(zlibInflate(V{}, empty));
    EXPECT_EQ(thrownError([] { (void)zlibDeflate(V{1}, 13); }), image::ImageError::compressionFailed);
}

TEST(ZipTest, PredictionOfBytesAndSixteenBitValuesIsADeltaOverTheRow)
{
    V bytes{1, 3, 2, 0};
    deltaEncodeRow8(bytes.data(), bytes.size());
    EXPECT_EQ(bytes, (V{1, 2, 0xFF, 0xFE}));
    deltaDecodeRow8(bytes.data(), bytes.size());
    EXPECT_EQ(bytes, (V{1, 3, 2, 0}));

    // Big-endian 0x0102, 0x0100, 0xFFFF → differences 0x0102, 0xFFFE, 0xFEFF.
    V values{0x01, 0x02, 0x01, 0x00, 0xFF, 0xFF};
    deltaEncodeRow16(values.data(), 3);
    EXPECT_EQ(values, (V{0x01, 0x02, 0xFF, 0xFE, 0xFE, 0xFF}));
    deltaDecodeRow16(values.data(), 3, true);
    std::uint16_t decoded[3];
    std::memcpy(decoded, values.data(), sizeof decoded);
    EXPECT_EQ(decoded[0], 0x0102);
    EXPECT_EQ(decoded[1], 0x0100);
    EXPECT_EQ(decoded[2], 0xFFFF);

    V littleEndian{0x02, 0x01, 0xFE, 0xFF}; // differences 0x0102, 0xFFFE
    deltaDecodeRow16(littleEndian.data(), 2, false);
    std::memcpy(decoded, littleEndian.data(), 4);
    EXPECT_EQ(decoded[0], 0x0102);
    EXPECT_EQ(decoded[1], 0x0100);
}

TEST(ZipTest, FloatPredictionSplitsBytePlanesMostSignificantFirst)
{
    // 1.0f = 3F 80 00 00, 2.0f = 40 00 00 00, -0.5f = BF 00 00 00.
    const V bigEndianFloats{0x3F, 0x80, 0x00, 0x00, 0x40, 0x00, 0x00, 0x00, 0xBF, 0x00, 0x00, 0x00};
    V out(12);
    floatPredictionEncodeRow(bigEndianFloats.data(), 3, out.data());
    // Planes 3F 40 BF | 80 00 00 | 00 00 00 | 00 00 00, then byte deltas over the whole row.
    EXPECT_EQ(out, (V{0x3F, 0x01, 0x7F, 0xC1, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    V native(12);
    floatPredictionDecodeRow(out.data(), 3, native.data());
    float values[3];
    std::memcpy(values, native.data(), sizeof values);
    EXPECT_EQ(values[0], 1.0f);
    EXPECT_EQ(values[1], 2.0f);
    EXPECT_EQ(values[2], -0.5f);
}

} // namespace
} // namespace psdkit::detail
