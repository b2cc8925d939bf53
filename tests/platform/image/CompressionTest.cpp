// The channel codecs: PackBits rows and zlib streams.
#include "psdkit/platform/image/PackBits.hpp"
#include "psdkit/platform/image/Zip.hpp"

#include <algorithm>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/platform/image/ImageError.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::detail {
namespace {
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;

// Both decoders, the exact one and the one that may write into padding after the row.
V decode(const V& in, std::size_t rowBytes)
{
    V out(rowBytes);
    packBitsDecodeRow(in, out);
    V padded(rowBytes + packBitsOutputPadding);
    packBitsDecodeRowPadded(in, std::span(padded).first(rowBytes));
    EXPECT_TRUE(std::equal(out.begin(), out.end(), padded.begin()));
    return out;
}

V encode(const V& in)
{
    V out(packBitsRowBound(in.size()));
    out.resize(packBitsEncodeRow(in, out));
    return out;
}

// Literals and repeats decode in the pixel buffer's round trips; these are forms the encoder never writes.
TEST(PackBitsTest, DecodesNoOpsAndRepeatsOfTwoAndRefusesRowsThatDoNotDecodeToExactlyTheRow)
{
    const std::tuple<const char*, V, V> cases[] = {
        {"repeat of two", {0xFF, 0x09}, V(2, 0x09)},
        {"no-op between runs", {0x00, 0x01, 0x80, 0xFF, 0x02}, {1, 2, 2}},
        {"no-op at the end", {0xFE, 0x04, 0x80}, V(3, 0x04)},
        {"no-op at the start", {0x80, 0x00, 0x05}, {5}},
        {"empty row", {}, {}},
    };
    for (const auto& [what, in, expected] : cases) {
        EXPECT_EQ(decode(in, expected.size()), expected) << what;
    }

    // Rows that do not decode to exactly the row are corrupt.
    const std::tuple<const char*, V, std::size_t> corrupt[] = {
        {"short row", {0x01, 1, 2}, 3},
        {"literal past the row", {0x02, 1, 2, 3}, 2},
        {"repeat past the row", {0xFD, 7}, 3},
        {"literal cut by the end of input", {0x03, 1, 2}, 4},
        {"repeat without its byte", {0x00, 1, 0xFE}, 4},
        {"data after a complete row", {0x00, 1, 0x00, 2}, 1},
        {"only no-ops for a non-empty row", {0x80, 0x80}, 1},
        {"bytes for an empty row", {0x00, 1}, 0},
    };
    for (const auto& [what, in, rowBytes] : corrupt) {
        V out(rowBytes + packBitsOutputPadding);
        const std::span<std::uint8_t> row = std::span(out).first(rowBytes);
        EXPECT_EQ(thrownError([&] { packBitsDecodeRow(in, row); }), image::ImageError::corruptPackBits)
            << what;
        EXPECT_EQ(thrownError([&] { packBitsDecodeRowPadded(in, row); }), image::ImageError::corruptPackBits)
            << what;
    }
}

TEST(PackBitsTest, EncodesRunsThatPayAsRepeatsAndSplitsLongRuns)
{
    const std::tuple<const char*, V, V> cases[] = {
        {"run of 128", V(128, 9), {0x81, 9}},
        {"run of 129", V(129, 9), {0x81, 9, 0x00, 9}},
        {"run of 131", V(131, 9), {0x81, 9, 0xFE, 9}},
        {"pair stays literal", {1, 1, 2}, {0x02, 1, 1, 2}},
        {"run of three at the start", {5, 5, 5, 1, 2}, {0xFE, 5, 0x01, 1, 2}},
        {"run of three inside a literal stays literal", {1, 2, 5, 5, 5, 3}, {0x05, 1, 2, 5, 5, 5, 3}},
        {"run of four ends a literal", {1, 2, 5, 5, 5, 5}, {0x01, 1, 2, 0xFD, 5}},
        {"run of four found by the word scan",
         {1, 2, 3, 4, 5, 6, 7, 8, 8, 8, 8, 9, 10, 11},
         {0x06, 1, 2, 3, 4, 5, 6, 7, 0xFD, 8, 0x02, 9, 10, 11}},
        {"single byte", {4}, {0x00, 4}},
        {"empty", {}, {}},
    };
    for (const auto& [what, in, expected] : cases) {
        EXPECT_EQ(encode(in), expected) << what;
    }
    V noise(300);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<std::uint8_t>(i % 2);
    }
    // 300 bytes without runs: literals of 128, 128 and 44, each with its header.
    EXPECT_EQ(encode(noise).size(), packBitsRowBound(300));
}

TEST(ZipTest, StreamsThatDoNotInflateToExactlyThePlaneAreCorrupt)
{
    V plane(1000);
    for (std::size_t i = 0; i < plane.size(); ++i) {
        plane[i] = static_cast<std::uint8_t>(i * i % 251);
    }
    const V stream = zlibDeflate(plane);
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

} // namespace
} // namespace psdkit::detail
