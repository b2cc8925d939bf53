#include "psdkit/platform/image/ChannelDecoding.hpp"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/Interleave.hpp"
#include "psdkit/platform/image/LargeAllocation.hpp"
#include "psdkit/platform/image/PackBits.hpp"
#include "psdkit/platform/image/PlaneShape.hpp"
#include "psdkit/platform/image/WorkerThread.hpp"
#include "psdkit/platform/image/Zip.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit::detail {

using namespace image; // this file implements part of the image core
namespace {

// No deflate stream inflates to more than 1032 bytes per byte (a 258-byte match in two bits).
constexpr std::size_t maximumDeflateRatio = 1032;

void validateChannel(const AnyChannelData& channel, SampleType expected, const PlaneShape& shape)
{
    if (channel.sampleType() != expected) {
        throw ImageException(ImageError::sampleTypeMismatch);
    }
    const std::size_t dataSize = channel.storedBytes().size();
    switch (channel.compressionType) {
    case ChannelDataCompressionType::none:
        if (dataSize != shape.planeBytes) {
            throw ImageException(ImageError::rawSizeMismatch);
        }
        return;
    case ChannelDataCompressionType::rle: {
        if (channel.rowByteCounts.size() != shape.height) {
            throw ImageException(ImageError::rowByteCountMismatch);
        }
        const std::size_t minimumRow = packBitsMinimumRowSize(shape.rowBytes);
        std::size_t remaining = dataSize;
        for (const std::int64_t count : channel.rowByteCounts) {
            if (count < 0 || static_cast<std::uint64_t>(count) > remaining) {
                throw ImageException(ImageError::rowByteCountMismatch);
            }
            if (static_cast<std::size_t>(count) < minimumRow) {
                throw ImageException(ImageError::corruptPackBits);
            }
            remaining -= static_cast<std::size_t>(count);
        }
        if (remaining != 0) {
            throw ImageException(ImageError::rowByteCountMismatch);
        }
        return;
    }
    case ChannelDataCompressionType::zip:
        if (channel.predictionType != PredictionType::none &&
            channel.predictionType != PredictionType::prediction) {
            throw ImageException(ImageError::unsupportedPrediction);
        }
        if (shape.planeBytes / maximumDeflateRatio > dataSize) {
            throw ImageException(ImageError::corruptZip);
        }
        return;
    }
    throw ImageException(ImageError::unsupportedCompression);
}

void swapBytesInPlace(std::uint8_t* row, std::size_t width, std::size_t sampleBytes) noexcept
{
    if (sampleBytes == 2) {
        for (std::size_t i = 0; i < width; ++i) {
            std::swap(row[2 * i], row[2 * i + 1]);
        }
    } else if (sampleBytes == 4) {
        for (std::size_t i = 0; i < width; ++i) {
            std::uint32_t v;
            std::memcpy(&v, row + 4 * i, 4);
            v = __builtin_bswap32(v);
            std::memcpy(row + 4 * i, &v, 4);
        }
    }
}

// Hands out the rows of one channel, in order, as native-endian samples.
class ChannelRowReader {
  public:
    // `plane` is the inflated plane of a ZIP channel (null otherwise); rows are asked for from
    // `firstRow` on.
    ChannelRowReader(const AnyChannelData& channel, const PlaneShape& shape, std::uint8_t* plane,
                     std::size_t firstRow)
        : channel_(&channel), shape_(shape), plane_(plane),
          swap_(shape.sampleBytes > 1 && channel.bigEndian != (std::endian::native == std::endian::big))
    {
        switch (channel.compressionType) {
        case ChannelDataCompressionType::none:
            if (swap_) {
                scratch_ = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
            }
            break;
        case ChannelDataCompressionType::rle:
            scratch_ = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes + packBitsOutputPadding);
            for (std::size_t y = 0; y < firstRow; ++y) {
                offset_ += static_cast<std::size_t>(channel.rowByteCounts[y]);
            }
            break;
        case ChannelDataCompressionType::zip:
            predicted_ = channel.predictionType == PredictionType::prediction;
            if (predicted_ && shape.sampleBytes == 4) {
                scratch_ = std::make_unique_for_overwrite<std::uint8_t[]>(shape.rowBytes);
            }
            break;
        }
    }

    // The samples of row y; rows are asked for in order 0, 1, 2… The pointer is valid until the next
    // call.
    const std::uint8_t* row(std::size_t y)
    {
        const std::size_t rowBytes = shape_.rowBytes;
        switch (channel_->compressionType) {
        case ChannelDataCompressionType::none: {
            const std::uint8_t* stored = channel_->storedBytes().data() + y * rowBytes;
            if (!swap_) {
                return stored;
            }
            std::memcpy(scratch_.get(), stored, rowBytes);
            swapBytesInPlace(scratch_.get(), shape_.width, shape_.sampleBytes);
            return scratch_.get();
        }
        case ChannelDataCompressionType::rle: {
            const auto count = static_cast<std::size_t>(channel_->rowByteCounts[y]);
            packBitsDecodeRowPadded({channel_->storedBytes().data() + offset_, count},
                                    {scratch_.get(), rowBytes});
            offset_ += count;
            if (swap_) {
                swapBytesInPlace(scratch_.get(), shape_.width, shape_.sampleBytes);
            }
            return scratch_.get();
        }
        case ChannelDataCompressionType::zip:
            break;
        }
        std::uint8_t* stored = plane_ + y * rowBytes;
        if (!predicted_) {
            if (swap_) {
                swapBytesInPlace(stored, shape_.width, shape_.sampleBytes);
            }
            return stored;
        }
        switch (shape_.sampleBytes) {
        case 1:
            deltaDecodeRow8(stored, shape_.width);
            return stored;
        case 2:
            deltaDecodeRow16(stored, shape_.width, channel_->bigEndian);
            return stored;
        default:
            floatPredictionDecodeRow(stored, shape_.width, scratch_.get());
            return scratch_.get();
        }
    }

  private:
    const AnyChannelData* channel_;
    PlaneShape shape_;
    std::uint8_t* plane_;
    bool swap_;
    bool predicted_ = false;
    std::size_t offset_ = 0;
    std::unique_ptr<std::uint8_t[]> scratch_;
};

void expand16BitRange(std::uint8_t* pixels, std::size_t sampleCount) noexcept
{
    for (std::size_t i = 0; i < sampleCount; ++i) {
        std::uint16_t v;
        std::memcpy(&v, pixels + 2 * i, 2);
        const std::uint32_t scaled = (std::uint32_t{v} * 65535 + 16384) / 32768;
        v = static_cast<std::uint16_t>(std::min<std::uint32_t>(scaled, 65535));
        std::memcpy(pixels + 2 * i, &v, 2);
    }
}

// Rows of an inflated plane, from `begin` on, that have been placed in the pixels and are never read
// again: their whole pages go back to the kernel as the rows are used up, so the planes shrink as
// the pixels grow instead of doubling a large layer's memory.
class PlaneRelease {
  public:
    explicit PlaneRelease(std::uint8_t* begin) noexcept : released_(reinterpret_cast<std::uintptr_t>(begin))
    {
        released_ = (released_ + pageBytes() - 1) / pageBytes() * pageBytes();
    }

    // Releases every whole page before `end`.
    void releaseBefore(const std::uint8_t* end) noexcept
    {
        const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(end) / pageBytes() * pageBytes();
        if (last > released_) {
#if defined(__linux__)
            (void)::madvise(reinterpret_cast<void*>(released_), last - released_, MADV_DONTNEED);
#endif
            released_ = last;
        }
    }

  private:
    static std::uintptr_t pageBytes() noexcept
    {
#if defined(__linux__)
        static const auto bytes = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        return bytes;
#else
        return 4096;
#endif
    }

    std::uintptr_t released_;
};

// Rows placed between two releases of the planes' used-up pages.
constexpr std::size_t rowsPerRelease = 64;

} // namespace

std::size_t validateChannels(IntegralSize size, std::span<const AnyChannelData* const> channels,
                             PixelFormat format)
{
    const std::size_t sampleBytes = bytesPerSample(sampleType(format));
    const PlaneShape shape = PlaneShape::make(size, sampleBytes);
    const std::size_t pixelBytes = imageByteCount(shape.planeBytes, channelCount(format));
    if (channels.size() != channelCount(format)) {
        throw ImageException(ImageError::channelCountMismatch);
    }
    for (const AnyChannelData* channel : channels) {
        assert(channel != nullptr);
        validateChannel(*channel, sampleType(format), shape);
    }
    return pixelBytes;
}

namespace {

// Decodes into `pixels`, logical channel c going to memory slot `slots[c]` of every pixel. ZIP
// planes are inflated whole first (channels spread over the threads), then all channels are read
// row by row and interleaved, the rows split into bands shared out among the threads. A grey
// buffer's single plane is inflated straight into the pixels and finished there.
void decodeInto(IntegralSize size, std::span<const AnyChannelData* const> channels, PixelFormat format,
                const std::size_t (&slots)[4], bool expand16BitColorRange, std::uint8_t* pixels,
                unsigned threads)
{
    const std::size_t sampleBytes = bytesPerSample(sampleType(format));
    const PlaneShape shape = PlaneShape::make(size, sampleBytes);
    const std::size_t count = channels.size();
    if (shape.planeBytes < minimumPlaneBytesForWorker) {
        threads = 1;
    }

    std::vector<LargeAllocation> ownedPlanes(count);
    std::vector<std::uint8_t*> planes(count, nullptr);
    const bool anyZip = std::ranges::any_of(channels, [](const AnyChannelData* c) {
        return c->compressionType == ChannelDataCompressionType::zip;
    });
    parallelForEach(anyZip ? count : 0, threads, [&](std::size_t c) {
        if (channels[c]->compressionType == ChannelDataCompressionType::zip) {
            if (count == 1) {
                planes[c] = pixels;
            } else {
                ownedPlanes[c] = allocateLarge(shape.planeBytes);
                planes[c] = ownedPlanes[c].get();
            }
            prefaultForWriting(planes[c], shape.planeBytes);
            zlibInflate(channels[c]->storedBytes(), {planes[c], shape.planeBytes});
        }
    });
    if (shape.planeBytes == 0) {
        return; // zlib streams have been checked; there is nothing to place
    }

    const std::size_t pixelRowBytes = shape.rowBytes * count;
    const auto decodeRows = [&](std::size_t firstRow, std::size_t endRow) {
        // The band's part of the pixels is usually fresh memory: fault it in at once, on this
        // thread, beside the other threads doing the same for their bands.
        prefaultForWriting(pixels + firstRow * pixelRowBytes, (endRow - firstRow) * pixelRowBytes);
        std::vector<ChannelRowReader> readers;
        std::vector<std::pair<PlaneRelease, std::uint8_t*>> releases; // owned planes of this band's rows
        readers.reserve(count);
        for (std::size_t c = 0; c < count; ++c) {
            readers.emplace_back(*channels[c], shape, planes[c], firstRow);
            if (ownedPlanes[c]) {
                releases.emplace_back(PlaneRelease(planes[c] + firstRow * shape.rowBytes), planes[c]);
            }
        }
        for (std::size_t y = firstRow; y < endRow; ++y) {
            if (y > firstRow && (y - firstRow) % rowsPerRelease == 0) {
                for (auto& [release, plane] : releases) {
                    release.releaseBefore(plane + y * shape.rowBytes);
                }
            }
            std::uint8_t* out = pixels + y * pixelRowBytes;
            if (count == 1) {
                const std::uint8_t* row = readers[0].row(y);
                if (row != out) {
                    std::memcpy(out, row, shape.rowBytes);
                }
                continue;
            }
            const std::uint8_t* rows[4];
            for (std::size_t c = 0; c < 4; ++c) {
                rows[slots[c]] = readers[c].row(y);
            }
            switch (sampleBytes) {
            case 1:
                interleave4<std::uint8_t>(rows, out, shape.width);
                break;
            case 2:
                interleave4<std::uint16_t>(rows, out, shape.width);
                break;
            default:
                interleave4<float>(rows, out, shape.width);
                break;
            }
        }
        if (expand16BitColorRange && sampleBytes == 2) {
            expand16BitRange(pixels + firstRow * pixelRowBytes, (endRow - firstRow) * shape.width * count);
        }
    };
    // A few bands per thread, taken in order as threads become free, so that a thread the system
    // holds back does not leave the others waiting at the end.
    const std::size_t bands =
        threads == 1 ? 1 : std::min<std::size_t>(std::size_t{threads} * 4, shape.height);
    parallelForEach(bands, threads, [&](std::size_t band) {
        decodeRows(shape.height * band / bands, shape.height * (band + 1) / bands);
    });
}

} // namespace

void decodeChannels(IntegralSize size, std::span<const AnyChannelData* const> channels, PixelFormat format,
                    bool expand16BitColorRange, std::uint8_t* pixels, bool mayUseWorkerThread)
{
    std::size_t slots[4] = {};
    for (std::size_t c = 0; c < std::min<std::size_t>(channels.size(), 4); ++c) {
        slots[c] = memorySlot(format, c);
    }
    decodeInto(size, channels, format, slots, expand16BitColorRange, pixels, mayUseWorkerThread ? 2 : 1);
}

void decodeChannelsInGivenOrder(IntegralSize size, std::span<const AnyChannelData* const> channels,
                                PixelFormat format, std::uint8_t* pixels, unsigned threads)
{
    static constexpr std::size_t givenOrder[4] = {0, 1, 2, 3};
    decodeInto(size, channels, format, givenOrder, false, pixels, std::max(threads, 1U));
}

} // namespace psdkit::detail
