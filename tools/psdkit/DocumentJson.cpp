#include "DocumentJson.hpp"

namespace psdkit::cli {

namespace {

const char* colorModeName(PSDColorMode mode) noexcept
{
    switch (mode) {
    case PSDColorMode::bitmap:
        return "bitmap";
    case PSDColorMode::grayscale:
        return "grayscale";
    case PSDColorMode::indexed:
        return "indexed";
    case PSDColorMode::rgb:
        return "rgb";
    case PSDColorMode::cmyk:
        return "cmyk";
    case PSDColorMode::multichannel:
        return "multichannel";
    case PSDColorMode::duotone:
        return "duotone";
    case PSDColorMode::lab:
        return "lab";
    }
    return "unknown";
}

Json imageSizeJson(const image::PixelBufferType* buffer)
{
    if (!buffer) {
        return nullptr;
    }
    return Json::array({buffer->size().width, buffer->size().height});
}

// A layer image's size without decoding it (documents listed are read structure only).
Json imageSizeJson(const std::optional<image::IntegralSize>& size)
{
    return size ? Json::array({size->width, size->height}) : Json(nullptr);
}

Json maskJson(const PSDLayerWrapper& layer)
{
    Json mask = Json::object();
    mask["maskRect"] = rectJson(layer.maskRect);
    mask["maskDefaultColor"] = layer.maskDefaultColor;
    mask["maskDisabled"] = layer.maskDisabled;
    mask["maskIsPositionedRelativeToLayer"] = layer.maskIsPositionedRelativeToLayer;
    if (layer.maskHasUserMaskDensity) {
        mask["userMaskDensity"] = layer.userMaskDensity;
    }
    if (layer.maskHasUserMaskFeather) {
        mask["userMaskFeather"] = layer.userMaskFeather;
    }
    if (layer.maskHasVectorMaskDensity) {
        mask["vectorMaskDensity"] = layer.vectorMaskDensity;
    }
    if (layer.maskHasVectorMaskFeather) {
        mask["vectorMaskFeather"] = layer.vectorMaskFeather;
    }
    if (layer.hasRealFlags) {
        mask["realMaskRect"] = rectJson(layer.realMaskRect);
        mask["realMaskDefaultColor"] = layer.realMaskDefaultColor;
        mask["realMaskDisabled"] = layer.realMaskDisabled;
    }
    mask["maskImageSize"] = imageSizeJson(layer.maskImageSize());
    return mask;
}

} // namespace

Json rectJson(const PSDMacRect& rect)
{
    return Json::array({rect.top, rect.left, rect.bottom, rect.right});
}

const char* formatName(const PSDWrapper& document) noexcept
{
    return document.bigFile ? "PSB" : "PSD";
}

Json layerJson(const PSDWrapper& document, const LayerTree& tree, const LayerFacts& facts, std::size_t index)
{
    const PSDLayerWrapper& layer = *document.layers[index];
    Json json = Json::object();
    json["index"] = index;
    json["name"] = layer.name;
    json["type"] = layer.type().description();
    json["subtype"] = layer.subtype.description();
    json["layerID"] = layer.layerID;
    json["parent"] = tree.parent[index] ? Json(*tree.parent[index]) : Json(nullptr);
    json["depth"] = tree.depth[index];
    json["contentsRect"] = rectJson(layer.contentsRect);
    json["opacity"] = layer.opacity;
    json["fillOpacity"] = layer.fillOpacity;
    json["blendMode"] = layer.blendMode.rawValue();
    json["visible"] = layer.visible;
    if (facts.kind != PSDLayerContentKind::groupEnd) {
        json["kind"] = name(facts.kind);
        json["text"] = facts.text ? Json(*facts.text) : Json(nullptr);
        if (facts.placedFile) {
            const PSDLinkedFile& file = *facts.placedFile;
            json["smartObject"] = Json{{"fileName", file.fileName},
                                       {"fileType", file.fileType},
                                       {"byteCount", file.byteCount ? Json(*file.byteCount) : Json(nullptr)},
                                       {"embedded", file.embedded}};
        } else {
            json["smartObject"] = nullptr;
        }
        json["clipping"] = layer.clipping;
    }
    json["lockFlags"] = layer.lockFlags;
    json["colorLabel"] = layer.colorLabel;
    json["selected"] = layer.selected;
    json["expanded"] = layer.expanded;
    json["pixelDataIrrelevantToAppearanceOfDocument"] = layer.pixelDataIrrelevantToAppearanceOfDocument;
    json["contentImageSize"] = imageSizeJson(layer.contentImageSize());
    json["hasLayerMask"] = layer.hasLayerMask;
    json["mask"] = layer.hasLayerMask ? maskJson(layer) : Json(nullptr);
    Json blocks = Json::array();
    for (const auto& [key, data] : layer.taggedData) {
        blocks.push_back(Json{{"key", key.rawValue()}, {"length", data.size()}});
    }
    json["taggedData"] = std::move(blocks);
    Json kept = Json::array();
    for (const PSDRawBlock& block : layer.uninterpretedBlocks) {
        kept.push_back(Json{{"key", block.key.rawValue()}, {"length", block.data.size()}});
    }
    json["uninterpretedBlocks"] = std::move(kept);
    return json;
}

Json headerJson(const PSDFileHeader& header)
{
    Json json = Json::object();
    json["format"] = header.bigFile ? "PSB" : "PSD";
    json["bigFile"] = header.bigFile;
    json["imageWidth"] = header.width;
    json["imageHeight"] = header.height;
    json["bitDepth"] = header.bitDepth;
    const auto mode = psdColorModeFromRawValue(header.colorMode);
    json["colorMode"] = mode ? Json(colorModeName(*mode)) : Json(header.colorMode);
    json["numberOfChannels"] = header.numberOfChannels;
    return json;
}

Json documentJson(const PSDWrapper& document, const LayerTree& tree)
{
    Json json = Json::object();
    json["format"] = formatName(document);
    json["bigFile"] = document.bigFile;
    json["imageWidth"] = document.imageWidth;
    json["imageHeight"] = document.imageHeight;
    json["bitDepth"] = document.bitDepth;
    json["colorMode"] = colorModeName(document.colorMode);
    json["numberOfChannels"] = document.numberOfChannels;
    json["compositeImageHasAlphaChannel"] = document.compositeImageHasAlphaChannel;
    json["hRes"] = document.hRes;
    json["hResUnit"] = document.hResUnit;
    json["vRes"] = document.vRes;
    json["vResUnit"] = document.vResUnit;
    // The stored values are pixels per inch; the units are only what the saving application shows.
    json["resolution"] = Json{{"ppi", Json::array({document.hRes, document.vRes})},
                              {"displayUnit", document.hResUnit == 2 ? "pixels/cm" : "ppi"}};
    if (const auto icc = document.colorSpace.iccData()) {
        json["colorProfile"] = Json{{"name", document.colorSpace.name()}, {"length", icc->size()}};
    } else {
        json["colorProfile"] = nullptr;
    }
    json["enableLayerEffects"] = document.enableLayerEffects;
    json["globalLightAngle"] = document.globalLightAngle;
    json["globalLightAltitude"] = document.globalLightAltitude;

    Json layers = Json::array();
    const std::vector<LayerFacts> facts = layerFacts(document);
    for (std::size_t i = 0; i < document.layers.size(); ++i) {
        layers.push_back(layerJson(document, tree, facts[i], i));
    }
    json["layers"] = std::move(layers);

    Json alphas = Json::array();
    if (document.alphaChannels) {
        for (const auto& channel : *document.alphaChannels) {
            alphas.push_back(Json{{"name", channel->name ? Json(*channel->name) : Json(nullptr)},
                                  {"size", imageSizeJson(channel->image.get())}});
        }
    }
    json["alphaChannels"] = std::move(alphas);

    Json resources = Json::array();
    for (const PSDImageResourceBlock& block : document.imageResources) {
        resources.push_back(
            Json{{"identifier", block.identifier}, {"name", block.name}, {"length", block.data.size()}});
    }
    json["imageResources"] = std::move(resources);
    json["patternDataLength"] = document.patternData ? Json(document.patternData->size()) : Json(nullptr);
    json["globalLayerMaskDataLength"] =
        document.globalLayerMaskData ? Json(document.globalLayerMaskData->size()) : Json(nullptr);

    Json metadata = Json::object();
    if (document.metadata) {
        for (const auto& [key, value] : document.metadata->properties()) {
            metadata[key] = value;
        }
    }
    json["metadata"] = std::move(metadata);
    return json;
}

std::string dumpJson(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace psdkit::cli
