// Pixel buffers from and to interleaved RGBA samples, whatever the buffer's memory order.
#include <gtest/gtest.h>

#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/InterleavedRGBA.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::image {
namespace {
using psdkit::testing::thrownError;

TEST(InterleavedRGBA, BuffersOfEveryDepthRoundTripAndEightBitKeepsTransparencyFirst)
{
    const std::vector<std::uint8_t> rgba = {10, 20, 30, 40, 50, 60, 70, 80};
    const auto buffer = pixelBufferFromRGBA(IntegralSize{2, 1}, rgba);
    EXPECT_EQ(buffer->at(0, 0), (PixelARGB8{40, 10, 20, 30}));
    EXPECT_EQ(buffer->bytes()[0], 40); // memory order a, r, g, b
    EXPECT_EQ(interleavedRGBA(*buffer), rgba);
    const std::vector<std::uint16_t> deep = {1, 2, 3, 65535, 40000, 0, 7, 9};
    EXPECT_EQ(interleavedRGBA(*pixelBufferFromRGBA(IntegralSize{1, 2}, deep)), deep);
    const std::vector<float> floats = {0.25F, 0.5F, 1.5F, 1.0F};
    EXPECT_EQ(pixelBufferFromRGBA(IntegralSize{1, 1}, floats)->at(0, 0),
              (PixelRGBA32{0.25F, 0.5F, 1.5F, 1.0F}));
    EXPECT_EQ(interleavedRGBA(*pixelBufferFromRGBA(IntegralSize{1, 1}, floats)), floats);
}

TEST(InterleavedRGBA, RefusesSamplesThatDoNotFitTheSize)
{
    const std::vector<std::uint8_t> five(5, 0), eight(8, 0);
    EXPECT_EQ(thrownError([&] {
                  (void)pixelBufferFromRGBA(IntegralSize{1, 1}, five);
              }),
              ImageError::rawSizeMismatch);
    EXPECT_EQ(thrownError([&] {
                  (void)pixelBufferFromRGBA(IntegralSize{1, 1}, eight);
              }),
              ImageError::rawSizeMismatch);
    EXPECT_EQ(thrownError([&] {
                  (void)pixelBufferFromRGBA(IntegralSize{-1, 1}, eight);
              }),
              ImageError::invalidSize);
}

} // namespace
} // namespace psdkit::image
