#include "psdkit/platform/image/PackBits.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include "platform/image/ImageTestSupport.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::detail {
namespace {
using image::testing::mixedBytes;
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;

V repeated(std::size_t n, std::uint8_t v)
{
    return V(n, v);
}

V withHeader(std::uint8_t header, const V& bytes)
{
    V result(1 + bytes.size(), header);
    std::copy(bytes.begin(), bytes.end(), result.begin() + 1);
    return result;
}

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

TEST(PackBitsTest, DecodesKnownRows)
{
    V literal128;
    for (int i = 0; i < 128; ++i) {
        literal128.push_back(static_cast<std::uint8_t>(i * 3));
    }
    struct Case {
        const char* what;
        V in;
        V expected;
    };
    const Case cases[] = {
        {"one literal", V{0x00, 0xAA}, V{0xAA}},
        {"literal of three", V{0x02, 1, 2, 3}, V{1, 2, 3}},
        {"literal of 128", withHeader(0x7F, literal128), literal128},
        {"repeat of three", V{0xFE, 0x55}, repeated(3, 0x55)},
        {"repeat of two", V{0xFF, 0x09}, repeated(2, 0x09)},
        {"repeat of 128", V{0x81, 0x07}, repeated(128, 0x07)},
        {"no-op between runs", V{0x00, 0x01, 0x80, 0xFF, 0x02}, V{1, 2, 2}},
        {"no-op at the end", V{0xFE, 0x04, 0x80}, repeated(3, 0x04)},
        {"no-op at the start", V{0x80, 0x00, 0x05}, V{5}},
        {"empty row", V{}, V{}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(decode(c.in, c.expected.size()), c.expected) << c.what;
    }
}

TEST(PackBitsTest, RowsThatDoNotDecodeToExactlyTheRowAreCorrupt)
{
    struct Case {
        const char* what;
        V in;
        std::size_t rowBytes;
    };
    const Case cases[] = {
        {"short row", V{0x01, 1, 2}, 3},
        {"literal past the row", V{0x02, 1, 2, 3}, 2},
        {"repeat past the row", V{0xFD, 7}, 3},
        {"literal cut by the end of input", V{0x03, 1, 2}, 4},
        {"repeat without its byte", V{0x00, 1, 0xFE}, 4},
        {"data after a complete row", V{0x00, 1, 0x00, 2}, 1},
        {"only no-ops for a non-empty row", V{0x80, 0x80}, 1},
        {"bytes for an empty row", V{0x00, 1}, 0},
    };
    for (const Case& c : cases) {
        V out(c.rowBytes + packBitsOutputPadding);
        const std::span<std::uint8_t> row = std::span(out).first(c.rowBytes);
        EXPECT_EQ(thrownError([&] { packBitsDecodeRow(c.in, row); }), image::ImageError::corruptPackBits)
            << c.what;
        EXPECT_EQ(thrownError([&] { packBitsDecodeRowPadded(c.in, row); }),
                  image::ImageError::corruptPackBits)
            << c.what;
    }
}

TEST(PackBitsTest, EncodesRunsThatPayAsRepeatsAndSplitsLongRuns)
{
    struct Case {
        const char* what;
        V in;
        V expected;
    };
    const Case cases[] = {
        {"run of 128", repeated(128, 9), V{0x81, 9}},
        {"run of 129", repeated(129, 9), V{0x81, 9, 0x00, 9}},
        {"run of 131", repeated(131, 9), V{0x81, 9, 0xFE, 9}},
        {"pair stays literal", V{1, 1, 2}, V{0x02, 1, 1, 2}},
        {"run of three at the start", V{5, 5, 5, 1, 2}, V{0xFE, 5, 0x01, 1, 2}},
        {"run of three inside a literal stays literal", V{1, 2, 5, 5, 5, 3}, V{0x05, 1, 2, 5, 5, 5, 3}},
        {"run of four ends a literal", V{1, 2, 5, 5, 5, 5}, V{0x01, 1, 2, 0xFD, 5}},
        {"run of four found by the word scan", V{1, 2, 3, 4, 5, 6, 7, 8, 8, 8, 8, 9, 10, 11},
         V{0x06, 1, 2, 3, 4, 5, 6, 7, 0xFD, 8, 0x02, 9, 10, 11}},
        {"single byte", V{4}, V{0x00, 4}},
        {"empty", V{}, V{}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(encode(c.in), c.expected) << c.what;
    }
    V noise(300);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<std::uint8_t>(i % 2);
    }
    // 300 bytes without runs: literals of 128, 128 and 44, each with its header.
    EXPECT_EQ(encode(noise).size(), packBitsRowBound(300));
}

TEST(PackBitsTest, EncodedRowsDecodeBackWithinTheBound)
{
    for (std::size_t n : {1u, 2u, 3u, 127u, 128u, 129u, 255u, 256u, 257u, 1000u, 4099u}) {
        for (std::uint32_t seed = 0; seed < 4; ++seed) {
            const V row = mixedBytes(n, seed);
            const V packed = encode(row);
            EXPECT_LE(packed.size(), packBitsRowBound(n));
            EXPECT_GE(packed.size(), packBitsMinimumRowSize(n));
            EXPECT_EQ(decode(packed, n), row) << n << " bytes, seed " << seed;
        }
    }
}

} // namespace
} // namespace psdkit::detail
