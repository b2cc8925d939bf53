#include "psdkit/platform/image/ChannelEncoding.hpp"

#include <cstring>
#include <memory>

#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/Interleave.hpp"
#include "psdkit/platform/image/LargeAllocation.hpp"
#include "psdkit/platform/image/PackBits.hpp"
#include "psdkit/platform/image/PlaneShape.hpp"
#include "psdkit/platform/image/WorkerThread.hpp"
#include "psdkit/platform/image/Zip.hpp"

namespace psdkit::detail {

using namespace image; // this file implements part of the image core
namespace {

// Run-length channels below this size are copied into a buffer of their exact size; the copy is
// cheap and the heap, where such blocks come from, would otherwise keep the unused end.
constexpr std::size_t kLargestCopiedToExactSize = std::size_t{1} << 20;

using ExtractRow = void (*)(const std::uint8_t*, std::size_t, std::size_t, std::size_t,
                            std::uint8_t*) noexcept;

ExtractRow extractorFor(std::size_t sampleBytes) noexcept
{
    switch (sampleBytes) {
    case 1:
        return &extractBigEndian<std::uint8_t>;
    case 2:
        return &extractBigEndian<std::uint16_t>;
    default:
        return &extractBigEndian<float>;
    }
}

// Builds one compressed channel from its rows, given in order as big-endian samples.
class ChannelWriter {
  public:
    ChannelWriter(SampleType sampleType, const PlaneShape& shape, ChannelDataCompressionType compression,
                  PredictionType prediction)
        : shape_(shape), compression_(compression),
          prediction_(compression == ChannelDataCompressionType::zip ? prediction : PredictionType::none),
          sampleType_(sampleType)
    {
        switch (compression) {
        case ChannelDataCompressionType::none:
            data_.reserve(shape.planeBytes);
            break;
        case ChannelDataCompressionType::rle:
            // Reserving the worst case maps no memory yet: only the pages written are touched.
            data_.reserve(imageByteCount(packBitsRowBound(shape.rowBytes), shape.height));
            counts_.reserve(shape.height);
            packed_ = std::make_unique_for_overwrite<std::uint8_t[]>(packBitsRowBound(shape.rowBytes));
            break;
        case ChannelDataCompressionType::zip:
            plane_ = allocateLarge(shape.planeBytes);
            break;
        }
    }

    // Takes row y; `row` (rowBytes big-endian samples) may be changed.
    void addRow(std::size_t y, std::uint8_t* row)
    {
        switch (compression_) {
        case ChannelDataCompressionType::none:
            data_.insert(data_.end(), row, row + shape_.rowBytes);
            return;
        case ChannelDataCompressionType::rle: {
            const std::size_t bound = packBitsRowBound(shape_.rowBytes);
            const std::size_t n = packBitsEncodeRow({row, shape_.rowBytes}, {packed_.get(), bound});
            counts_.push_back(static_cast<std::int64_t>(n));
            data_.insert(data_.end(), packed_.get(), packed_.get() + n);
            return;
        }
        case ChannelDataCompressionType::zip:
            break;
        }
        std::uint8_t* out = plane_.get() + y * shape_.rowBytes;
        if (prediction_ != PredictionType::prediction) {
            std::memcpy(out, row, shape_.rowBytes);
        } else if (shape_.sampleBytes == 4) {
            floatPredictionEncodeRow(row, shape_.width, out);
        } else {
            std::memcpy(out, row, shape_.rowBytes);
            if (shape_.sampleBytes == 1) {
                deltaEncodeRow8(out, shape_.width);
            } else {
                deltaEncodeRow16(out, shape_.width);
            }
        }
    }

    // The channel, once every row has been added.
    AnyChannelData finish()
    {
        if (compression_ == ChannelDataCompressionType::zip) {
            data_ = zlibDeflate({plane_.get(), shape_.planeBytes});
            plane_.reset();
        } else if (data_.capacity() < kLargestCopiedToExactSize) {
            data_.shrink_to_fit();
        }
        // A larger run-length buffer keeps its reservation: the system maps it page by page as it
        // is written, so the unused end (at most 1/128 of the plane and a byte a row) is address
        // space that is never touched, and copying the data to an exact-size buffer would only
        // cost a second copy of the channel, in time and in peak memory.
        AnyChannelData channel(sampleType_, std::move(data_), true, compression_, prediction_);
        channel.rowByteCounts = std::move(counts_);
        return channel;
    }

  private:
    PlaneShape shape_;
    ChannelDataCompressionType compression_;
    PredictionType prediction_;
    SampleType sampleType_;
    std::vector<std::uint8_t> data_;
    std::vector<std::int64_t> counts_;
    std::unique_ptr<std::uint8_t[]> packed_;
    LargeAllocation plane_;
};

} // namespace

std::vector<AnyChannelData> encodeChannels(const std::uint8_t* pixels, IntegralSize size, PixelFormat format,
                                           bool colorChannelsOnly, ChannelDataCompressionType compression,
                                           PredictionType prediction, bool mayUseWorkerThread)
{
    if (compression != ChannelDataCompressionType::none && compression != ChannelDataCompressionType::rle &&
        compression != ChannelDataCompressionType::zip) {
        throw ImageException(ImageError::unsupportedCompression);
    }
    if (compression == ChannelDataCompressionType::zip && prediction != PredictionType::none &&
        prediction != PredictionType::prediction) {
        throw ImageException(ImageError::unsupportedPrediction);
    }
    const SampleType type = sampleType(format);
    const PlaneShape shape = PlaneShape::make(size, bytesPerSample(type));
    const std::size_t samplesPerPixel = channelCount(format);
    const std::size_t count = samplesPerPixel == 4 && colorChannelsOnly ? 3 : samplesPerPixel;
    const ExtractRow extract = extractorFor(shape.sampleBytes);

    // Each thread takes every channel of its group row by row, so that a row of pixels is read from
    // memory once for all of them. With a worker, the groups are the even and the odd channels.
    const bool useWorker = mayUseWorkerThread && count > 1 && shape.planeBytes >= minimumPlaneBytesForWorker;
    const std::size_t groups = useWorker ? 2 : 1;
    std::vector<AnyChannelData> result(count);
    forEachIndex(groups, useWorker, [&](std::size_t group) {
        std::vector<std::size_t> members;
        std::vector<ChannelWriter> writers;
        for (std::size_t c = group; c < count; c += groups) {
            members.push_back(c);
            writers.emplace_back(type, shape, compression, prediction);
        }
        const auto row = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
        // Empty rows add nothing, except a row byte count each for PackBits: a zero-width plane of
        // many rows is not walked row by row.
        const bool rowsAddNothing = shape.rowBytes == 0 && compression != ChannelDataCompressionType::rle;
        const std::size_t rows = rowsAddNothing ? 0 : shape.height;
        for (std::size_t y = 0; y < rows; ++y) {
            const std::uint8_t* pixelRow = pixels + y * shape.rowBytes * samplesPerPixel;
            for (std::size_t k = 0; k < members.size(); ++k) {
                extract(pixelRow, shape.width, samplesPerPixel, memorySlot(format, members[k]), row.get());
                writers[k].addRow(y, row.get());
            }
        }
        for (std::size_t k = 0; k < members.size(); ++k) {
            result[members[k]] = writers[k].finish();
        }
    });
    return result;
}

} // namespace psdkit::detail
