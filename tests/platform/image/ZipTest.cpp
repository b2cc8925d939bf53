#include "psdkit/platform/image/Zip.hpp"

#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/platform/image/ImageError.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::detail {
namespace {
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;

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
