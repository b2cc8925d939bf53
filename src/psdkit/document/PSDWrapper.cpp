#include "psdkit/document/PSDWrapper.hpp"

#include <array>
#include <system_error>

#include "psdkit/core/ChunkedOutputSink.hpp"
#include "psdkit/document/PSDDocumentReader.hpp"
#include "psdkit/document/PSDDocumentWriter.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/LayerImages.hpp"

namespace psdkit {
namespace {

// The document-level raw sections, handed to the host as an opaque value by
// `auxiliaryFileData()` and taken back by `setAuxiliaryFileData()`.
struct PSDAuxiliaryFileData {
    std::optional<std::vector<PSDImageResourceBlock>> imageResources;
    std::optional<std::vector<std::uint8_t>> colorModeData;
    std::optional<OrderedMap<PSDFourCharCode, std::vector<std::uint8_t>>> additionalLayerAndMaskInfo;
    std::optional<std::vector<std::uint8_t>> globalLayerMaskData;
};

} // namespace

PSDWrapper::PSDWrapper() = default;

PSDWrapper::PSDWrapper(std::span<const std::uint8_t> data) : PSDWrapper(data, PSDReadOptions{}) {}

PSDWrapper::PSDWrapper(std::span<const std::uint8_t> data, const PSDReadOptions& options)
{
    detail::PSDDocumentReader(*this, data, options).read();
}

PSDWrapper::PSDWrapper(const PSDSharedBytes& data, const PSDReadOptions& options)
{
    detail::PSDDocumentReader(*this, data, options).read();
}

void PSDWrapper::addLayerWrapper(std::shared_ptr<PSDLayerWrapper> layer)
{
    layers.push_back(std::move(layer));
}

void PSDWrapper::addSectionDivider()
{
    auto divider = std::make_shared<PSDLayerWrapper>(bitDepth);
    divider->setType(PSDLayerType::sectionDivider());
    divider->pixelDataIrrelevantToAppearanceOfDocument = true;
    layers.push_back(std::move(divider));
}

void PSDWrapper::addAlphaChannel(std::shared_ptr<PSDAlphaChannel> channel)
{
    if (!alphaChannels) {
        alphaChannels.emplace();
    }
    alphaChannels->push_back(std::move(channel));
}

std::any PSDWrapper::auxiliaryFileData() const
{
    return std::make_shared<PSDAuxiliaryFileData>(
        PSDAuxiliaryFileData{imageResources, colorModeData, additionalLayerAndMaskInfo, globalLayerMaskData});
}

void PSDWrapper::setAuxiliaryFileData(const std::any& value)
{
    const auto* held = std::any_cast<std::shared_ptr<PSDAuxiliaryFileData>>(&value);
    if (held == nullptr || !*held) {
        return;
    }
    const PSDAuxiliaryFileData& data = **held;
    if (data.imageResources) {
        imageResources = *data.imageResources;
    }
    if (data.colorModeData) {
        colorModeData = data.colorModeData;
    }
    if (data.additionalLayerAndMaskInfo) {
        additionalLayerAndMaskInfo = *data.additionalLayerAndMaskInfo;
    }
    globalLayerMaskData = data.globalLayerMaskData;
}

std::vector<std::uint8_t>
PSDWrapper::serializedRepresentationWithCompositeImage(const image::PixelBufferType* composite,
                                                       const PSDWriteOptions& options)
{
    detail::ChunkedOutputSink pieces;
    detail::PSDDocumentWriter(*this, composite, pieces, options).write();
    return pieces.takeBytes();
}

void PSDWrapper::serializeWithCompositeImage(const image::PixelBufferType* composite, PSDOutputSink& sink,
                                             const PSDWriteOptions& options)
{
    detail::PSDDocumentWriter(*this, composite, sink, options).write();
}

std::shared_ptr<image::PixelBufferType> PSDWrapper::compositeImage() const
{
    const std::size_t needed = compositeImageHasAlphaChannel ? 4 : 3;
    const auto expected = detail::sampleTypeForDepth(bitDepth);
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
            opaque = detail::opaqueChannel(bitDepth, size, imageDataChannelData[0]);
            transparency = &*opaque;
        }
        const std::array<const image::AnyChannelData*, 4> channels = {
            &imageDataChannelData[0], &imageDataChannelData[1], &imageDataChannelData[2], transparency};
        return detail::colorImage(bitDepth, size, channels);
    } catch (const std::system_error&) {
        return nullptr;
    }
}

std::shared_ptr<image::PixelBufferType> PSDWrapper::compositeImageOrBlank() const
{
    if (auto composite = compositeImage()) {
        return composite;
    }
    const auto format = image::colorPixelFormatForDepth(bitDepth).value_or(image::PixelFormat::argb8);
    return image::makePixelBuffer(format, {imageWidth, imageHeight});
}

} // namespace psdkit
