#include "psdkit/platform/image/ChannelEncoding.hpp"

#include <memory>

#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/Interleave.hpp"
#include "psdkit/platform/image/LargeAllocation.hpp"
#include "psdkit/platform/image/PackBits.hpp"
#include "psdkit/platform/image/SizeArithmetic.hpp"
#include "psdkit/platform/image/WorkerThread.hpp"
#include "psdkit/platform/image/Zip.hpp"

namespace psdkit::image::detail {
namespace {

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

// Everything one channel's encoding needs to know about the pixels.
struct PlaneSource {
    const std::uint8_t* pixels;
    PlaneShape shape;
    std::size_t channels; // samples per pixel
    SampleType sampleType;
    ExtractRow extract;

    [[nodiscard]] const std::uint8_t* pixelRow(std::size_t y) const noexcept
    {
        return pixels + y * shape.rowBytes * channels;
    }
};

AnyChannelData encodeRaw(const PlaneSource& source, std::size_t slot)
{
    const PlaneShape& shape = source.shape;
    std::vector<std::uint8_t> data;
    data.reserve(shape.planeBytes);
    const auto row = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
    for (std::size_t y = 0; y < shape.height; ++y) {
        source.extract(source.pixelRow(y), shape.width, source.channels, slot, row.get());
        data.insert(data.end(), row.get(), row.get() + shape.rowBytes);
    }
    return {source.sampleType, std::move(data), true, ChannelDataCompressionType::none, PredictionType::none};
}

AnyChannelData encodePackBits(const PlaneSource& source, std::size_t slot)
{
    const PlaneShape& shape = source.shape;
    const std::size_t rowBound = packBitsRowBound(shape.rowBytes);
    std::vector<std::uint8_t> data;
    // Reserving the worst case maps no memory yet: only the pages written are touched.
    data.reserve(checkedMultiply(rowBound, shape.height));
    std::vector<std::int64_t> counts;
    counts.reserve(shape.height);
    const auto row = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
    const auto packed = std::make_unique_for_overwrite<std::uint8_t[]>(rowBound);
    for (std::size_t y = 0; y < shape.height; ++y) {
        source.extract(source.pixelRow(y), shape.width, source.channels, slot, row.get());
        const std::size_t n = packBitsEncodeRow({row.get(), shape.rowBytes}, {packed.get(), rowBound});
        counts.push_back(static_cast<std::int64_t>(n));
        data.insert(data.end(), packed.get(), packed.get() + n);
    }
    data.shrink_to_fit();
    AnyChannelData channel(source.sampleType, std::move(data), true, ChannelDataCompressionType::rle,
                           PredictionType::none);
    channel.rowByteCounts = std::move(counts);
    return channel;
}

AnyChannelData encodeZip(const PlaneSource& source, std::size_t slot, PredictionType prediction)
{
    const PlaneShape& shape = source.shape;
    const bool predicted = prediction == PredictionType::prediction;
    const LargeAllocation plane = allocateLarge(shape.planeBytes);
    const auto scratch = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
    for (std::size_t y = 0; y < shape.height; ++y) {
        std::uint8_t* out = plane.get() + y * shape.rowBytes;
        if (predicted && shape.sampleBytes == 4) {
            source.extract(source.pixelRow(y), shape.width, source.channels, slot, scratch.get());
            floatPredictionEncodeRow(scratch.get(), shape.width, out);
            continue;
        }
        source.extract(source.pixelRow(y), shape.width, source.channels, slot, out);
        if (predicted) {
            if (shape.sampleBytes == 1) {
                deltaEncodeRow8(out, shape.width);
            } else {
                deltaEncodeRow16(out, shape.width);
            }
        }
    }
    return {source.sampleType, zlibDeflate({plane.get(), shape.planeBytes}), true,
            ChannelDataCompressionType::zip, prediction};
}

AnyChannelData encodeChannel(const PlaneSource& source, std::size_t slot,
                             ChannelDataCompressionType compression, PredictionType prediction)
{
    switch (compression) {
    case ChannelDataCompressionType::none:
        return encodeRaw(source, slot);
    case ChannelDataCompressionType::rle:
        return encodePackBits(source, slot);
    case ChannelDataCompressionType::zip:
        break;
    }
    return encodeZip(source, slot, prediction);
}

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
    const PlaneSource source{pixels, PlaneShape::make(size, bytesPerSample(type)), channelCount(format), type,
                             extractorFor(bytesPerSample(type))};
    const std::size_t count = source.channels == 4 && colorChannelsOnly ? 3 : source.channels;

    std::vector<AnyChannelData> result(count);
    forEachIndex(count, mayUseWorkerThread && source.shape.planeBytes >= minimumPlaneBytesForWorker,
                 [&](std::size_t c) {
                     result[c] = encodeChannel(source, memorySlot(format, c), compression, prediction);
                 });
    return result;
}

} // namespace psdkit::image::detail
