#include "psdkit/platform/image/Zip.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>

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
    const V stream = zlibDeflate(mixedBytes(1000, 7));
    V badChecksum = stream, badHeader = stream, trailing = stream;
    badChecksum.back() ^= 1;
    badHeader[0] = 0x79; // not the deflate method
    trailing.push_back(0);
    const auto cut = [&](std::size_t n) {
        return V(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(n));
    };
    const std::tuple<const char*, V, std::size_t> cases[] = {
        {"plane larger than the stream's", stream, 1001},
        {"plane smaller than the stream's", stream, 999},
        {"cut inside the checksum", cut(stream.size() - 2), 1000},
        {"cut inside the data", cut(stream.size() / 2), 1000},
        {"wrong checksum", badChecksum, 1000},
        {"bytes after the stream", trailing, 1000},
        {"not a zlib header", badHeader, 1000},
        {"no stream for a non-empty plane", {}, 1},
        {"garbage", {1, 2, 3, 4, 5, 6, 7, 8}, 8},
    };
    for (const auto& [what, in, planeBytes] : cases) {
        V out(planeBytes);
        EXPECT_EQ(thrownError([&] { zlibInflate(in, out); }), image::ImageError::corruptZip) << what;
    }
    V empty;
    EXPECT_NO_THROW(zlibInflate(V{}, empty));
    EXPECT_EQ(thrownError([] { (void)zlibDeflate(V{1}, 13); }), image::ImageError::compressionFailed);
}

template <typename T, std::size_t N> std::array<T, N> nativeValues(const V& bytes)
{
    std::array<T, N> values;
    std::memcpy(values.data(), bytes.data(), sizeof values);
    return values;
}

TEST(ZipTest, PredictionIsADeltaOverTheRowAndSplitsFloatsIntoBytePlanes)
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
    EXPECT_EQ((nativeValues<std::uint16_t, 3>(values)),
              (std::array<std::uint16_t, 3>{0x0102, 0x0100, 0xFFFF}));
    V littleEndian{0x02, 0x01, 0xFE, 0xFF}; // differences 0x0102, 0xFFFE
    deltaDecodeRow16(littleEndian.data(), 2, false);
    EXPECT_EQ((nativeValues<std::uint16_t, 2>(littleEndian)), (std::array<std::uint16_t, 2>{0x0102, 0x0100}));

    // 1.0f = 3F 80 00 00, 2.0f = 40 00 00 00, -0.5f = BF 00 00 00: planes 3F 40 BF | 80 00 00 | 00… then
    // byte deltas over the whole row.
    const V floats{0x3F, 0x80, 0x00, 0x00, 0x40, 0x00, 0x00, 0x00, 0xBF, 0x00, 0x00, 0x00};
    V out(12), native(12);
    floatPredictionEncodeRow(floats.data(), 3, out.data());
    EXPECT_EQ(out, (V{0x3F, 0x01, 0x7F, 0xC1, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    floatPredictionDecodeRow(out.data(), 3, native.data());
    EXPECT_EQ((nativeValues<float, 3>(native)), (std::array<float, 3>{1.0f, 2.0f, -0.5f}));
}

} // namespace
} // namespace psdkit::detail
