#pragma once
// Internal to the image core: checking channels against the plane they must fill, and decoding
// them into interleaved pixels.
#include <cstddef>
#include <cstdint>
#include <span>

#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit::detail {

/// Checks everything about `channels` that needs no decoding: the size, the channel count and
/// sample types for `format`, the compression and prediction values, raw byte counts, PackBits row
/// byte counts, and that each channel's bytes could at all decode to its plane. Returns the byte
/// count of the pixel buffer. Throws `image::ImageException`.
[[nodiscard]] std::size_t validateChannels(image::IntegralSize size,
                                           std::span<const image::AnyChannelData* const> channels,
                                           image::PixelFormat format);

/// Decodes `channels` (already accepted by `validateChannels`) into `pixels`, which holds the byte
/// count that call returned; with `mayUseWorkerThread` large planes are decoded on two threads.
/// Throws `image::ImageException` on corrupt PackBits or zlib data (the error a decoding in order would
/// meet first); `pixels` may then be partly written.
void decodeChannels(image::IntegralSize size, std::span<const image::AnyChannelData* const> channels,
                    image::PixelFormat format, bool expand16BitColorRange, std::uint8_t* pixels,
                    bool mayUseWorkerThread);

/// Decodes like `decodeChannels`, except that the channels are placed in every pixel in the order
/// they are given (red, green, blue, transparency for colour), whatever `format`'s memory order,
/// and that the rows of a large plane are spread over up to `threads` threads (0 counts as 1).
void decodeChannelsInGivenOrder(image::IntegralSize size,
                                std::span<const image::AnyChannelData* const> channels,
                                image::PixelFormat format, std::uint8_t* pixels, unsigned threads);

} // namespace psdkit::detail
