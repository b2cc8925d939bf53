#pragma once
// One channel's samples as a file stores them: compressed or raw bytes with their compression,
// prediction and (for PackBits) the byte count of every row.
#include "psdkit/Export.hpp"
#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "psdkit/core/PSDSharedBytes.hpp"
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
    /// Empty when the bytes are shared instead (`sharedData`).
    std::vector<std::uint8_t> compressedData;
    /// The channel's bytes as stored, when they are a view into storage shared with others (a
    /// document read from `PSDSharedBytes` keeps its planes this way, without a copy). Used only
    /// while `compressedData` is empty; whoever sets `compressedData` may leave this alone.
    PSDSharedBytes sharedData;
    /// For PackBits: the byte count of each row, one entry per row, in row order. Unused otherwise.
    std::vector<std::int64_t> rowByteCounts;
    /// Whether samples wider than one byte are big-endian once decompressed (and, with prediction,
    /// before the prediction is undone).
    bool bigEndian = true;
    /// Free-form properties of the channel (the document reader keeps a channel's ID and length here).
    std::map<std::string, ChannelPropertyValue> properties;

    /// The channel's stored bytes wherever they are held: `compressedData`, or `sharedData` when
    /// `compressedData` is empty. Valid until either changes.
    [[nodiscard]] std::span<const std::uint8_t> storedBytes() const noexcept
    {
        return compressedData.empty() ? sharedData.span() : std::span<const std::uint8_t>(compressedData);
    }

    /// Equal when sample type, stored bytes (wherever held) and every other field are.
    friend bool operator==(const AnyChannelData& a, const AnyChannelData& b)
    {
        const auto x = a.storedBytes();
        const auto y = b.storedBytes();
        return a.sampleType_ == b.sampleType_ && a.compressionType == b.compressionType &&
               a.predictionType == b.predictionType && std::equal(x.begin(), x.end(), y.begin(), y.end()) &&
               a.rowByteCounts == b.rowByteCounts && a.bigEndian == b.bigEndian &&
               a.properties == b.properties;
    }

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
