#include "psdkit/layers/LayerImages.hpp"

#include <algorithm>
#include <cstring>

#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/image/ChannelDecoding.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit::detail {
namespace {
[[noreturn]] void unsupportedDepth()
{
    throw PSDException(PSDError::readParameterError);
}

// Large images are decoded with the image core's worker thread beside the caller's when allowed;
// the pixels and the error are those of decoding on one thread.
template <typename P>
std::shared_ptr<image::PixelBufferType> decoded(image::IntegralSize size,
                                                std::span<const image::AnyChannelData* const> channels,
                                                bool mayUseWorkerThread)
{
    return std::make_shared<image::PixelBuffer<P>>(size, channels, false, std::string(), mayUseWorkerThread);
}
} // namespace

image::AnyChannelData opaqueChannel(std::int64_t bitDepth, image::IntegralSize size,
                                    const image::AnyChannelData& sibling)
{
    std::uint8_t sample[4] = {};
    std::size_t sampleSize = 0;
    image::SampleType type = image::SampleType::uint8;
    switch (bitDepth) {
    case 8:
        sample[0] = 0xFF;
        sampleSize = 1;
        break;
    case 16:
        sample[0] = sample[1] = 0xFF;
        sampleSize = 2;
        type = image::SampleType::uint16;
        break;
    case 32:
        sample[0] = 0x3F;
        sample[1] = 0x80;
        sampleSize = 4;
        type = image::SampleType::float32;
        break;
    default:
        unsupportedDepth();
    }
    if (size.width < 0 || size.height < 0) {
        throw image::ImageException(image::ImageError::invalidSize);
    }
    const auto count = checkedMultiply(size.width, size.height);
    const auto checkedBytes =
        count ? checkedMultiply(*count, static_cast<std::int64_t>(sampleSize)) : std::nullopt;
    if (!checkedBytes) {
        throw image::ImageException(image::ImageError::imageTooLarge);
    }
    const std::int64_t bytes = *checkedBytes;
    // PackBits turns two bytes into at most 128, deflate one byte into at most 1032.
    const auto stored = static_cast<std::int64_t>(sibling.storedBytes().size());
    const std::int64_t expansion = sibling.compressionType == image::ChannelDataCompressionType::zip   ? 1032
                                   : sibling.compressionType == image::ChannelDataCompressionType::rle ? 64
                                                                                                       : 1;
    if (bytes / expansion > stored) {
        throw image::ImageException(image::ImageError::imageTooLarge);
    }
    std::vector<std::uint8_t> data(static_cast<std::size_t>(bytes));
    if (sampleSize == 1) {
        std::fill(data.begin(), data.end(), std::uint8_t{0xFF}); // memset would be given null for no bytes
    } else {
        for (std::size_t i = 0; i < data.size(); i += sampleSize) {
            std::memcpy(data.data() + i, sample, sampleSize);
        }
    }
    return image::AnyChannelData(type, std::move(data), true, image::ChannelDataCompressionType::none,
                                 image::PredictionType::none);
}

std::shared_ptr<image::PixelBufferType> colorImage(std::int64_t bitDepth, image::IntegralSize size,
                                                   std::span<const image::AnyChannelData* const> channels,
                                                   bool mayUseWorkerThread)
{
    switch (bitDepth) {
    case 8:
        return decoded<image::PixelARGB8>(size, channels, mayUseWorkerThread);
    case 16:
        return decoded<image::PixelRGBA16>(size, channels, mayUseWorkerThread);
    case 32:
        return decoded<image::PixelRGBA32>(size, channels, mayUseWorkerThread);
    default:
        unsupportedDepth();
    }
}

void decodeColorInto(std::int64_t bitDepth, image::IntegralSize size,
                     std::span<const image::AnyChannelData* const> channels,
                     std::span<std::uint8_t> destination, unsigned threads)
{
    const auto format = image::colorPixelFormatForDepth(bitDepth);
    if (!format) {
        unsupportedDepth();
    }
    if (detail::validateChannels(size, channels, *format) != destination.size()) {
        throw image::ImageException(image::ImageError::rawSizeMismatch);
    }
    detail::decodeChannelsInGivenOrder(size, channels, *format, destination.data(), threads);
}

std::shared_ptr<image::PixelBufferType> grayImage(std::int64_t bitDepth, image::IntegralSize size,
                                                  std::span<const image::AnyChannelData* const> channels,
                                                  bool mayUseWorkerThread)
{
    switch (bitDepth) {
    case 8:
        return decoded<image::PixelGray8>(size, channels, mayUseWorkerThread);
    case 16:
        return decoded<image::PixelGray16>(size, channels, mayUseWorkerThread);
    case 32:
        return decoded<image::PixelGray32>(size, channels, mayUseWorkerThread);
    default:
        unsupportedDepth();
    }
}

} // namespace psdkit::detail
