#pragma once
// PSDCompressionType: the compression code stored before every channel's image data.
#include <cstdint>
#include <optional>

#include "psdkit/platform/image/ChannelData.hpp"

namespace psdkit {

/// How one channel's image data is stored, by its stored code.
enum class PSDCompressionType : std::int64_t {
    uncompressed = 0,      ///< raw samples
    rle = 1,               ///< PackBits rows with their byte counts
    zip = 2,               ///< one zlib stream
    zipWithPrediction = 3, ///< one zlib stream of per-row differences
};

/// The case for a stored code 0 to 3; nothing for any other value.
[[nodiscard]] constexpr std::optional<PSDCompressionType>
psdCompressionTypeFromRawValue(std::int64_t raw) noexcept
{
    if (raw < 0 || raw > 3) {
        return std::nullopt;
    }
    return static_cast<PSDCompressionType>(raw);
}

/// The code for an image-core compression and prediction: none → uncompressed and RLE → rle
/// whatever the prediction; ZIP → zip or zipWithPrediction; ZIP with an unknown prediction → nothing.
[[nodiscard]] constexpr std::optional<PSDCompressionType>
psdCompressionType(image::ChannelDataCompressionType compression, image::PredictionType prediction) noexcept
{
    switch (compression) {
    case image::ChannelDataCompressionType::none:
        return PSDCompressionType::uncompressed;
    case image::ChannelDataCompressionType::rle:
        return PSDCompressionType::rle;
    case image::ChannelDataCompressionType::zip:
        if (prediction == image::PredictionType::none) {
            return PSDCompressionType::zip;
        }
        if (prediction == image::PredictionType::prediction) {
            return PSDCompressionType::zipWithPrediction;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

/// The image-core compression of a code.
[[nodiscard]] constexpr image::ChannelDataCompressionType
channelDataCompression(PSDCompressionType type) noexcept
{
    switch (type) {
    case PSDCompressionType::uncompressed:
        return image::ChannelDataCompressionType::none;
    case PSDCompressionType::rle:
        return image::ChannelDataCompressionType::rle;
    default:
        return image::ChannelDataCompressionType::zip;
    }
}

/// The image-core prediction of a code: prediction for zipWithPrediction, else none.
[[nodiscard]] constexpr image::PredictionType channelDataPrediction(PSDCompressionType type) noexcept
{
    return type == PSDCompressionType::zipWithPrediction ? image::PredictionType::prediction
                                                         : image::PredictionType::none;
}

} // namespace psdkit
