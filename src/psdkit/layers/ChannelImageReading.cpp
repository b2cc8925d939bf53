// Reading one layer's channel image data and turning its channels into the content and mask images.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/layers/LayerImages.hpp"
#include "psdkit/layers/PSDCompressionType.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/WorkerThread.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit {
namespace {

std::int64_t integerProperty(const image::AnyChannelData& channel, const char* key)
{
    const auto it = channel.properties.find(key);
    if (it == channel.properties.end()) {
        throw PSDException(PSDError::readParameterError);
    }
    const auto* value = std::get_if<std::int64_t>(&it->second);
    if (value == nullptr) {
        throw PSDException(PSDError::readParameterError);
    }
    return *value;
}

// The content image's channels, red, green, blue, transparency; a layer without a transparency
// channel gets a fully opaque one, made in `opaque`.
std::array<const image::AnyChannelData*, 4> contentChannels(const PSDLayerWrapper& layer,
                                                            std::optional<image::AnyChannelData>& opaque)
{
    std::vector<const image::AnyChannelData*> colour;
    const image::AnyChannelData* transparency = nullptr;
    for (const auto& channel : layer.channelInfo) {
        const std::int64_t id = integerProperty(channel, PSDLayerWrapper::channelIDKey);
        if (id >= 0) {
            colour.push_back(&channel);
        } else if (id == -1 && transparency == nullptr) {
            transparency = &channel;
        }
    }
    if (colour.size() != 3) {
        throw PSDException(PSDError::readInvalidImageData);
    }
    if (transparency == nullptr) {
        opaque = detail::opaqueChannel(layer.bitDepth, layer.contentsRect.size(), *colour.front());
        transparency = &*opaque;
    }
    return {colour[0], colour[1], colour[2], transparency};
}

// Copies a colour buffer into `destination` as red, green, blue, transparency samples, the rows of
// a large buffer spread over `threads` threads.
void copyAsRGBA(const image::PixelBufferType& image, std::span<std::uint8_t> destination, unsigned threads)
{
    const auto format = image.format();
    if (image::channelCount(format) != 4) {
        throw image::ImageException(image::ImageError::channelCountMismatch);
    }
    const auto source = image.bytes();
    if (source.size() != destination.size()) {
        throw image::ImageException(image::ImageError::rawSizeMismatch);
    }
    const auto rows = static_cast<std::size_t>(image.size().height);
    const std::size_t rowBytes = rows == 0 ? 0 : source.size() / rows;
    const std::size_t bands =
        source.size() >= detail::minimumPlaneBytesForWorker ? std::min<std::size_t>(threads, rows) : 1;
    detail::parallelForEach(bands, threads, [&](std::size_t band) {
        const std::size_t begin = rows * band / bands * rowBytes;
        const std::size_t end = rows * (band + 1) / bands * rowBytes;
        if (format != image::PixelFormat::argb8) {
            std::memcpy(destination.data() + begin, source.data() + begin, end - begin);
            return;
        }
        // a, r, g, b in memory: every pixel's 32-bit word rotated by one byte.
        for (std::size_t i = begin; i < end; i += 4) {
            std::uint32_t word;
            std::memcpy(&word, source.data() + i, 4);
            word = std::endian::native == std::endian::little ? std::rotr(word, 8) : std::rotl(word, 8);
            std::memcpy(destination.data() + i, &word, 4);
        }
    });
}

} // namespace

void PSDLayerWrapper::readChannelImageData(PSDScanner& scanner, bool bigFile)
{
    readChannelImageData(scanner, bigFile, PSDImageDecoding::eager);
}

void PSDLayerWrapper::readChannelImageData(PSDScanner& scanner, bool bigFile, PSDImageDecoding decoding,
                                           unsigned threadCount)
{
    const std::int64_t countSize = bigFile ? 4 : 2;
    const bool shareBytes = scanner.sharesInput();
    for (auto& channel : channelInfo) {
        const std::int64_t length = integerProperty(channel, readLengthKey);
        const std::int64_t channelID = integerProperty(channel, channelIDKey);
        if (scanner.bytesRemaining() < 2) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        const auto compression = psdCompressionTypeFromRawValue(scanner.scanUInt16());
        if (!compression) {
            throw PSDException(PSDError::readUnsupportedImageCompression);
        }
        channel.compressionType = channelDataCompression(*compression);
        channel.predictionType = channelDataPrediction(*compression);
        if (length < 2) {
            // A recorded length too small for even the compression code: the data length would be
            // negative.
            throw PSDException(PSDError::readParameterError);
        }
        std::int64_t dataLength = length - 2;
        if (*compression == PSDCompressionType::rle) {
            const PSDMacRect& covered = channelID == -2   ? maskRect
                                        : channelID == -3 ? realMaskRect
                                                          : contentsRect;
            const std::int64_t rows = covered.height();
            channel.rowByteCounts.clear();
            if (rows > 0 && scanner.bytesRemaining() / countSize >= rows) {
                channel.rowByteCounts.reserve(static_cast<std::size_t>(rows));
            }
            for (std::int64_t row = 0; row < rows; ++row) {
                if (scanner.bytesRemaining() < countSize) {
                    throw PSDException(PSDError::readUnexpectedEndOfFile);
                }
                channel.rowByteCounts.push_back(bigFile ? scanner.scanInt32() : scanner.scanInt16());
                dataLength -= countSize;
            }
        }
        if (shareBytes) {
            channel.compressedData.clear();
            channel.sharedData = scanner.scanSharedData(dataLength);
        } else {
            channel.compressedData = scanner.scanData(dataLength);
        }
    }

    const bool hasContent = contentsRect.width() != 0 && contentsRect.height() != 0;
    const bool hasMask = hasLayerMask && maskRect.width() != 0 && maskRect.height() != 0;
    if (hasContent) {
        // The content image takes the channels in ID order, and the layer keeps that order.
        std::stable_sort(channelInfo.begin(), channelInfo.end(), [](const auto& a, const auto& b) {
            return integerProperty(a, channelIDKey) < integerProperty(b, channelIDKey);
        });
    }
    {
        const std::lock_guard lock(*imageMutex_);
        const bool decode = decoding != PSDImageDecoding::never;
        decodeThreadCount_ = threadCount;
        contentPending_ = hasContent && decode;
        maskPending_ = hasMask && decode;
        contentUndecoded_ = hasContent && !decode;
        maskUndecoded_ = hasMask && !decode;
    }
    if (decoding == PSDImageDecoding::eager) {
        (void)contentImage();
        (void)maskImage();
    }
}

std::shared_ptr<image::PixelBufferType> PSDLayerWrapper::contentImage() const
{
    const std::lock_guard lock(*imageMutex_);
    if (contentPending_) {
        contentImage_ = decodeContentImage();
        contentPending_ = false;
    }
    return contentImage_;
}

void PSDLayerWrapper::setContentImage(std::shared_ptr<image::PixelBufferType> image)
{
    const std::lock_guard lock(*imageMutex_);
    contentImage_ = std::move(image);
    contentPending_ = false;
    contentUndecoded_ = false;
}

std::shared_ptr<image::PixelBufferType> PSDLayerWrapper::maskImage() const
{
    const std::lock_guard lock(*imageMutex_);
    if (maskPending_) {
        maskImage_ = decodeMaskImage();
        maskPending_ = false;
    }
    return maskImage_;
}

void PSDLayerWrapper::setMaskImage(std::shared_ptr<image::PixelBufferType> image)
{
    const std::lock_guard lock(*imageMutex_);
    maskImage_ = std::move(image);
    maskPending_ = false;
    maskUndecoded_ = false;
}

bool PSDLayerWrapper::hasPendingImages() const
{
    const std::lock_guard lock(*imageMutex_);
    return contentPending_ || maskPending_;
}

std::optional<image::IntegralSize> PSDLayerWrapper::contentImageSize() const
{
    const std::lock_guard lock(*imageMutex_);
    if (contentImage_) {
        return contentImage_->size();
    }
    if (contentPending_ || contentUndecoded_) {
        return contentsRect.size();
    }
    return std::nullopt;
}

std::optional<image::IntegralSize> PSDLayerWrapper::maskImageSize() const
{
    const std::lock_guard lock(*imageMutex_);
    if (maskImage_) {
        return maskImage_->size();
    }
    if (maskPending_ || maskUndecoded_) {
        return maskRect.size();
    }
    return std::nullopt;
}

std::shared_ptr<image::PixelBufferType> PSDLayerWrapper::decodeContentImage() const
{
    std::optional<image::AnyChannelData> opaque;
    return detail::colorImage(bitDepth, contentsRect.size(), contentChannels(*this, opaque),
                              decodeThreadCount_ != 1);
}

bool PSDLayerWrapper::copyContentImageRGBA(std::span<std::uint8_t> destination, unsigned threadCount) const
{
    const std::lock_guard lock(*imageMutex_);
    const unsigned threads =
        detail::effectiveThreadCount(threadCount != 0 ? threadCount : decodeThreadCount_);
    if (contentPending_) {
        std::optional<image::AnyChannelData> opaque;
        detail::decodeColorInto(bitDepth, contentsRect.size(), contentChannels(*this, opaque), destination,
                                threads);
        return true;
    }
    if (!contentImage_) {
        return false;
    }
    copyAsRGBA(*contentImage_, destination, threads);
    return true;
}

std::shared_ptr<image::PixelBufferType> PSDLayerWrapper::decodeMaskImage() const
{
    const auto it = std::find_if(channelInfo.begin(), channelInfo.end(),
                                 [](const auto& c) { return integerProperty(c, channelIDKey) == -2; });
    if (it == channelInfo.end()) {
        throw PSDException(PSDError::readInvalidImageData);
    }
    const image::AnyChannelData* channel = &*it;
    return detail::grayImage(bitDepth, maskRect.size(), {&channel, 1}, decodeThreadCount_ != 1);
}

} // namespace psdkit
