#include "psdkit/platform/image/Zip.hpp"

#include <algorithm>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/image/ImageTestSupport.hpp"
#include "psdkit/platform/image/ImageError.hpp"
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
        for (int level : {0, zipCompressionLevel, 12}) {
            V out(n);
            zlibInflate(zlibDeflate(plane, level), out);
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

} // namespace
} // namespace psdkit::detail
