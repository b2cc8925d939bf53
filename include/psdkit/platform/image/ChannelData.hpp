#pragma once
// One channel's samples as a file stores them: compressed or raw bytes with their compression,
// prediction and (for PackBits) the byte count of every row.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "psdkit/platform/image/ChannelDataCompressionType.hpp"

namespace psdkit::image {

/// A value of a channel's property map. Construct text values from `std::string` (a string
/// literal converts to it; it never silently becomes a `bool`).
using ChannelPropertyValue = std::variant<std::int64_t, double, bool, std::string>;

/// One channel's samples in their stored form, of any sample type. A plain value: copies are
/// independent. Nothing here is validated when it is set; decoding (`PixelBuffer`) checks
/// everything against the plane it expects and refuses what does not fit.
class PSDKIT_EXPORT AnyChannelData {
  public:
    /// An empty uncompressed big-endian channel of 8-bit samples.
    AnyChannelData() = default;

    /// A channel of `sampleType` holding `data` as stored. `isBigEndian` says how samples wider than
    /// one byte are ordered in the (decompressed) data; files always store them big-endian.
    AnyChannelData(SampleType sampleType, std::vector<std::uint8_t> data, bool isBigEndian,
                   ChannelDataCompressionType compression, PredictionType prediction)
        : compressionType(compression), predictionType(prediction), compressedData(std::move(data)),
          bigEndian(isBigEndian), sampleType_(sampleType)
    {
    }

    /// The sample type, fixed at creation.
    [[nodiscard]] SampleType sampleType() const noexcept { return sampleType_; }

    /// How `compressedData` is compressed.
    ChannelDataCompressionType compressionType = ChannelDataCompressionType::none;
    /// The prediction applied before ZIP compression; ignored for the other compressions.
    PredictionType predictionType = PredictionType::none;
    /// The channel's bytes as stored: raw samples, PackBits rows one after another, or a zlib stream.
    std::vector<std::uint8_t> compressedData;
    /// For PackBits: the byte count of each row, one entry per row, in row order. Unused otherwise.
    std::vector<std::int64_t> rowByteCounts;
    /// Whether samples wider than one byte are big-endian once decompressed (and, with prediction,
    /// before the prediction is undone).
    bool bigEndian = true;
    /// Free-form properties of the channel (the document reader keeps a channel's ID and length here).
    std::map<std::string, ChannelPropertyValue> properties;

    /// Equal when sample type and every field are.
    friend bool operator==(const AnyChannelData&, const AnyChannelData&) = default;

  private:
    SampleType sampleType_ = SampleType::uint8;
};

/// The sample type of a C++ sample: std::uint8_t, std::uint16_t or float.
template <typename Sample> constexpr SampleType sampleTypeOf() noexcept;
/// @cond
template <> constexpr SampleType sampleTypeOf<std::uint8_t>() noexcept
{
    return SampleType::uint8;
}
template <> constexpr SampleType sampleTypeOf<std::uint16_t>() noexcept
{
    return SampleType::uint16;
}
template <> constexpr SampleType sampleTypeOf<float>() noexcept
{
    return SampleType::float32;
}
/// @endcond

/// A channel whose sample type is fixed by `Sample` (std::uint8_t, std::uint16_t or float). It adds
/// no members, so it can be stored in a list of `AnyChannelData` by value without losing anything.
template <typename Sample> class ChannelData final : public AnyChannelData {
  public:
    /// A channel of `Sample` samples; the arguments as for `AnyChannelData`.
    ChannelData(std::vector<std::uint8_t> data, bool isBigEndian, ChannelDataCompressionType compression,
                PredictionType prediction)
        : AnyChannelData(sampleTypeOf<Sample>(), std::move(data), isBigEndian, compression, prediction)
    {
    }
};

} // namespace psdkit::image
