#pragma once
// The enumerations that describe how one channel's samples are stored: the compression of the
// bytes, the prediction applied before ZIP compression, and the sample type.
#include "psdkit/Export.hpp"
#include <cstddef>
#include <optional>
#include <string_view>

namespace psdkit::image {

/// How a channel's bytes are compressed. The raw texts are "None", "RLE" and "Zip".
enum class ChannelDataCompressionType {
    none, ///< the samples as they are, row after row
    rle,  ///< PackBits, each row compressed on its own; the byte count of every row is kept apart
    zip,  ///< one zlib stream of the whole plane (optionally after prediction)
};

/// The raw text of a compression: "None", "RLE" or "Zip".
[[nodiscard]] PSDKIT_EXPORT std::string_view rawText(ChannelDataCompressionType compression) noexcept;

/// The compression whose raw text is `text` (exact, case-sensitive match), or nothing.
[[nodiscard]] std::optional<ChannelDataCompressionType>
compressionTypeFromRawText(std::string_view text) noexcept;

/// The per-row delta coding applied before ZIP compression. Only `none` (0) and `prediction` (1)
/// are defined; other values can be held (the type is an open integer enumeration) but cannot be
/// encoded or decoded and are refused with `ImageError::unsupportedPrediction` where they matter.
enum class PredictionType : int {
    none = 0,
    prediction = 1,
};

/// The type of one sample of a channel.
enum class SampleType {
    uint8,   ///< unsigned 8-bit
    uint16,  ///< unsigned 16-bit
    float32, ///< IEEE 754 single precision
};

/// The number of bytes one sample of `type` takes: 1, 2 or 4.
[[nodiscard]] constexpr std::size_t bytesPerSample(SampleType type) noexcept
{
    switch (type) {
    case SampleType::uint8:
        return 1;
    case SampleType::uint16:
        return 2;
    case SampleType::float32:
        return 4;
    }
    return 1;
}

} // namespace psdkit::image
