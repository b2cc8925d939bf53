#include "psdkit/document/PSDWrapper.hpp"

#include "psdkit/document/PSDDocumentReader.hpp"

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
    PSDDocumentReader(*this, data, options).read();
}

PSDWrapper::PSDWrapper(const PSDSharedBytes& data, const PSDReadOptions& options)
{
    PSDDocumentReader(*this, data, options).read();
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

} // namespace psdkit
