#pragma once
// Internal to the image core: splitting interleaved pixels into compressed, big-endian channels.
#include <cstdint>
#include <vector>

#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit::detail {

/// The work of `PixelBufferType::makeChannelData` on the pixels `pixels` (width × height pixels of
/// `format`). Documented there.
[[nodiscard]] std::vector<image::AnyChannelData>
encodeChannels(const std::uint8_t* pixels, image::IntegralSize size, image::PixelFormat format,
               bool colorChannelsOnly, image::ChannelDataCompressionType compression,
               image::PredictionType prediction, bool mayUseWorkerThread);

} // namespace psdkit::detail
