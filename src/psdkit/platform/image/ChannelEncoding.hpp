#pragma once
// Internal to the image core: splitting interleaved pixels into compressed, big-endian channels.
#include <cstdint>
#include <vector>

#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit::image::detail {

/// The work of `PixelBufferType::makeChannelData` on the pixels `pixels` (width × height pixels of
/// `format`). Documented there.
[[nodiscard]] std::vector<AnyChannelData> encodeChannels(const std::uint8_t* pixels, IntegralSize size,
                                                         PixelFormat format, bool colorChannelsOnly,
                                                         ChannelDataCompressionType compression,
                                                         PredictionType prediction, bool mayUseWorkerThread);

} // namespace psdkit::image::detail
