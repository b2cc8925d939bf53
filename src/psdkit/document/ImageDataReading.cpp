// The image data section: the composite's planes, kept compressed, and the alpha channels; and
// the composite as a pixel buffer for the host.
#include "psdkit/document/PSDDocumentReader.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/LayerImages.hpp"

namespace psdkit {

void PSDDocumentReader::readImageData()
{
    auto& doc = document_;
    const std::int64_t code = scanner_.scanInt16();
    if (code < 0 || code > 3) {
        throw PSDException(PSDError::readCorruptFile);
    }
    const std::int64_t channels = doc.numberOfChannels;
    if (channels < 0) {
        throw PSDException(PSDError::readCorruptFile);
    }
    if (channels == 0) {
        return;
    }
    if (code >= 2) {
        throw PSDException(PSDError::readCorruptFile); // ZIP-compressed composites are not read
    }
    const image::SampleType sampleType = sampleTypeForDepth(doc.bitDepth).value_or(image::SampleType::uint8);
    const auto bytesPerSample = static_cast<std::int64_t>(image::bytesPerSample(sampleType));

    std::vector<std::vector<std::int64_t>> rowCounts;
    if (code == 1) {
        if (doc.imageHeight < 0) {
            throw PSDException(PSDError::readCorruptFile);
        }
        const std::int64_t countSize = doc.bigFile ? 4 : 2;
        // Every count takes countSize bytes of the file: fail before sizing anything from the header.
        std::int64_t total = 0;
        if (__builtin_mul_overflow(channels, doc.imageHeight, &total) ||
            total > scanner_.bytesRemaining() / countSize) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        rowCounts.resize(static_cast<std::size_t>(channels));
        for (auto& counts : rowCounts) {
            counts.reserve(static_cast<std::size_t>(doc.imageHeight));
            for (std::int64_t row = 0; row < doc.imageHeight; ++row) {
                counts.push_back(doc.bigFile ? scanner_.scanInt32() : scanner_.scanInt16());
            }
        }
    }

    std::int64_t planeBytes = 0;
    if (code == 0 && (__builtin_mul_overflow(doc.imageWidth, doc.imageHeight, &planeBytes) ||
                      __builtin_mul_overflow(planeBytes, bytesPerSample, &planeBytes))) {
        throw PSDException(PSDError::readCorruptFile);
    }
    doc.imageDataChannelData.reserve(static_cast<std::size_t>(std::min<std::int64_t>(channels, 64)));
    for (std::int64_t c = 0; c < channels; ++c) {
        // A plane shares the input when the reader was given shared bytes, else it is a copy.
        const auto plane = [&](std::int64_t length, image::ChannelDataCompressionType compression) {
            if (!scanner_.sharesInput()) {
                return image::AnyChannelData(sampleType, scanner_.scanData(length), true, compression,
                                             image::PredictionType::none);
            }
            image::AnyChannelData channel(sampleType, {}, true, compression, image::PredictionType::none);
            channel.sharedData = sharedSlice(length);
            return channel;
        };
        if (code == 0) {
            doc.imageDataChannelData.push_back(plane(planeBytes, image::ChannelDataCompressionType::none));
        } else {
            auto& counts = rowCounts[static_cast<std::size_t>(c)];
            std::int64_t sum = 0;
            for (const std::int64_t n : counts) {
                sum += n; // at most 2^31 rows of 32-bit counts: cannot overflow
            }
            image::AnyChannelData channel = plane(sum, image::ChannelDataCompressionType::rle);
            channel.rowByteCounts = std::move(counts);
            doc.imageDataChannelData.push_back(std::move(channel));
        }
    }
    buildAlphaChannels();
}

void PSDDocumentReader::buildAlphaChannels()
{
    auto& doc = document_;
    const std::int64_t first = doc.compositeImageHasAlphaChannel ? 4 : 3;
    if (doc.numberOfChannels <= first) {
        return;
    }
    const auto& names =
        doc.alphaChannelsUnicodeNames ? doc.alphaChannelsUnicodeNames : doc.alphaChannelsPascalNames;
    doc.alphaChannels.emplace();
    const image::IntegralSize size{doc.imageWidth, doc.imageHeight};
    for (std::int64_t c = first; c < doc.numberOfChannels; ++c) {
        auto alpha = std::make_shared<PSDAlphaChannel>();
        const image::AnyChannelData* channel = &doc.imageDataChannelData[static_cast<std::size_t>(c)];
        alpha->image = layerimages::grayImage(doc.bitDepth, size, {&channel, 1});
        const auto index = static_cast<std::size_t>(c - 3);
        if (names && index < names->size()) {
            alpha->name = (*names)[index];
        }
        doc.alphaChannels->push_back(std::move(alpha));
    }
}

std::shared_ptr<image::PixelBufferType> PSDWrapper::compositeImage() const
{
    const std::size_t needed = compositeImageHasAlphaChannel ? 4 : 3;
    const auto expected = sampleTypeForDepth(bitDepth);
    if (imageDataChannelData.size() < needed || !expected) {
        return nullptr;
    }
    for (std::size_t c = 0; c < needed; ++c) {
        if (imageDataChannelData[c].sampleType() != *expected) {
            return nullptr; // the host changed the depth after reading
        }
    }
    const image::IntegralSize size{imageWidth, imageHeight};
    try {
        std::optional<image::AnyChannelData> opaque;
        const image::AnyChannelData* transparency = nullptr;
        if (compositeImageHasAlphaChannel) {
            transparency = &imageDataChannelData[3];
        } else {
            opaque = layerimages::opaqueChannel(bitDepth, size, imageDataChannelData[0]);
            transparency = &*opaque;
        }
        const std::array<const image::AnyChannelData*, 4> channels = {
            &imageDataChannelData[0], &imageDataChannelData[1], &imageDataChannelData[2], transparency};
        return layerimages::colorImage(bitDepth, size, channels);
    } catch (const std::system_error&) {
        return nullptr;
    }
}

} // namespace psdkit
