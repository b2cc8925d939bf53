// The image data section: the composite's planes, kept compressed, and the alpha channels.
#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/document/PSDDocumentReader.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/LayerImages.hpp"

namespace psdkit::detail {

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
        const auto total = detail::checkedMultiply(channels, doc.imageHeight);
        if (!total || *total > scanner_.bytesRemaining() / countSize) {
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
    if (code == 0) {
        const auto pixels = detail::checkedMultiply(doc.imageWidth, doc.imageHeight);
        const auto bytes = pixels ? detail::checkedMultiply(*pixels, bytesPerSample) : std::nullopt;
        if (!bytes) {
            throw PSDException(PSDError::readCorruptFile);
        }
        planeBytes = *bytes;
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
        alpha->image = detail::grayImage(doc.bitDepth, size, {&channel, 1});
        const auto index = static_cast<std::size_t>(c - 3);
        if (names && index < names->size()) {
            alpha->name = (*names)[index];
        }
        doc.alphaChannels->push_back(std::move(alpha));
    }
}

} // namespace psdkit::detail
