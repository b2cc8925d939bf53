#include "psdkit/document/PSDDocumentReader.hpp"
#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/core/ImageResourceBlocks.hpp"
#include "psdkit/core/ImageResourceID.hpp"

#include <algorithm>
#include <array>
#include <exception>

#include "psdkit/document/PSDFileHeader.hpp"
#include "psdkit/layers/RawBlockReading.hpp"
#include "psdkit/layers/TaggedBlockKeys.hpp"
#include "psdkit/platform/PropertyList.hpp"
#include "psdkit/platform/support/HostApplication.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit::detail {
namespace {

// `base` + `length` for a declared section or block end. A sum that does not fit 64 bits, or an
// end before the base (a negative length), is refused: the cursor never moves backwards.
std::int64_t sectionEnd(std::int64_t base, std::int64_t length)
{
    const auto end = length < 0 ? std::nullopt : detail::checkedAdd(base, length);
    if (!end) {
        throw PSDException(PSDError::readCorruptFile);
    }
    return *end;
}

bool isDroppedResource(std::int64_t id)
{
    using ID = ImageResourceID;
    static constexpr std::array<std::int64_t, 14> kDropped = {ID::obsoleteChannelInfo,
                                                              ID::obsoleteIndexedColorTable,
                                                              ID::obsoleteDisplayInfo,
                                                              ID::obsolete1020,
                                                              ID::obsolete1023,
                                                              ID::obsolete1027,
                                                              ID::iptcNaa,
                                                              ID::thumbnailOld,
                                                              ID::thumbnail,
                                                              ID::obsoleteColorSamplers,
                                                              ID::versionInfo,
                                                              ID::exif,
                                                              ID::exif3,
                                                              ID::xmp};
    return std::find(kDropped.begin(), kDropped.end(), id) != kDropped.end();
}

bool isLayerInformationKey(const PSDFourCharCode& key)
{
    return key == PSDFourCharCode("Layr") || key == PSDFourCharCode("Lr16") || key == PSDFourCharCode("Lr32");
}

} // namespace

void PSDDocumentReader::read()
{
    readHeader();
    readColorModeData();
    readImageResources();
    readLayerAndMaskInformation();
    recognizeLayerlessTransparency();
    readImageData();
}

void PSDDocumentReader::recognizeLayerlessTransparency()
{
    auto& doc = document_;
    if (!doc.layers.empty() || doc.compositeImageHasAlphaChannel || doc.numberOfChannels < 4) {
        return;
    }
    const auto& names =
        doc.alphaChannelsUnicodeNames ? doc.alphaChannelsUnicodeNames : doc.alphaChannelsPascalNames;
    if (names && !names->empty() &&
        (names->front() == "Transparency" || names->front() == std::string("Transparency\0", 13))) {
        doc.compositeImageHasAlphaChannel = true;
    }
}

void PSDDocumentReader::readHeader()
{
    if (scanner_.scanFourCharCode() != PSDFourCharCode("8BPS")) {
        throw PSDException(PSDError::readCorruptFile);
    }
    const std::int64_t version = scanner_.scanInt16();
    if (version == 1) {
        document_.bigFile = false;
    } else if (version == 2) {
        document_.bigFile = true;
    } else {
        throw PSDException(PSDError::readUnknownFileVersion);
    }
    if (scanner_.bytesRemaining() < 6) {
        throw PSDException(PSDError::readUnexpectedEndOfFile);
    }
    scanner_.skip(6);
    document_.numberOfChannels = scanner_.scanInt16();
    document_.imageHeight = scanner_.scanInt32();
    document_.imageWidth = scanner_.scanInt32();
    document_.bitDepth = scanner_.scanInt16();
    const std::int64_t mode = scanner_.scanInt16();
    const auto colorMode = psdColorModeFromRawValue(mode);
    const std::string refused = describeColorModeAndDepth(mode, document_.bitDepth);
    if (!colorMode) {
        throw PSDException(PSDError::readCorruptFile, "unknown colour mode: " + refused);
    }
    document_.colorMode = *colorMode;
    if (*colorMode != PSDColorMode::rgb) {
        throw PSDException(PSDError::readUnsupportedColorMode, refused);
    }
    // Only these depths have a sample type; any other cannot be decoded or written.
    if (document_.bitDepth != 8 && document_.bitDepth != 16 && document_.bitDepth != 32) {
        throw PSDException(PSDError::readCorruptFile, "unsupported depth: " + refused);
    }
}

void PSDDocumentReader::readColorModeData()
{
    const std::int64_t length = scanner_.scanInt32();
    if (length > 0) {
        document_.colorModeData = scanner_.scanData(length);
    }
}

void PSDDocumentReader::readImageResources()
{
    ImageMetadata::Resources metadata;
    detail::readImageResourceBlocks(
        scanner_, [&](detail::ImageResourceBlockHeader& block) { readImageResource(block, metadata); });
    document_.metadata = ImageMetadata::fromResources(metadata);
}

void PSDDocumentReader::readImageResource(detail::ImageResourceBlockHeader& block,
                                          ImageMetadata::Resources& metadata)
{
    const std::int64_t id = block.id;
    const std::int64_t size = block.dataSize;
    const std::int64_t dataStart = scanner_.offset();
    auto& doc = document_;
    switch (id) {
    case ImageResourceID::resolutionInfo:
        doc.hRes = scanner_.scanFixed32();
        doc.hResUnit = scanner_.scanInt16();
        doc.widthUnit = scanner_.scanInt16();
        doc.vRes = scanner_.scanFixed32();
        doc.vResUnit = scanner_.scanInt16();
        doc.heightUnit = scanner_.scanInt16();
        break;
    case ImageResourceID::alphaChannelNames:
        doc.alphaChannelsPascalNames = readNames(dataStart + size, &PSDScanner::scanPascalString);
        break;
    case ImageResourceID::layerStateInfo:
        doc.targetLayerIndex = scanner_.scanInt16();
        break;
    case ImageResourceID::globalLightAngle:
        doc.globalLightAngle = scanner_.scanInt32();
        break;
    case ImageResourceID::iccProfile: {
        const auto profile = scanner_.scanData(size);
        if (profile.empty()) {
            throw PSDException(PSDError::readCorruptFile);
        }
        auto space = ColorSpace::fromICCData(profile);
        if (!space) {
            throw PSDException(PSDError::readCorruptFile);
        }
        doc.colorSpace = std::move(*space);
        break;
    }
    case ImageResourceID::layerEffectsVisible:
        doc.enableLayerEffects = scanner_.scanUInt8() != 0;
        break;
    case ImageResourceID::layerIdSeed:
        doc.minimumNewLayerID = scanner_.scanInt32();
        break;
    case ImageResourceID::unicodeAlphaNames:
        doc.alphaChannelsUnicodeNames = readNames(dataStart + size, &PSDScanner::scanUnicodeString);
        break;
    case ImageResourceID::globalLightAltitude:
        doc.globalLightAltitude = scanner_.scanInt32();
        break;
    case ImageResourceID::layerSelectionIds: {
        const std::int64_t count = scanner_.scanUInt16();
        for (std::int64_t i = 0; i < count; ++i) {
            doc.selectedLayerIDs.push_back(scanner_.scanInt32());
        }
        break;
    }
    case ImageResourceID::xmp:
    case ImageResourceID::exif:
    case ImageResourceID::iptcNaa: {
        // Dropped from the document; the first of each kind is the metadata service's.
        const auto data = scanner_.scanBytes(size);
        auto& found = id == ImageResourceID::xmp    ? metadata.xmp
                      : id == ImageResourceID::exif ? metadata.exif
                                                    : metadata.iptc;
        if (!found) {
            found = data;
        }
        break;
    }
    default:
        if (isDroppedResource(id)) {
            scanner_.skip(size);
        } else {
            doc.imageResources.push_back({id, std::move(block.name), scanner_.scanData(size)});
        }
        break;
    }
}

std::vector<std::string> PSDDocumentReader::readNames(std::int64_t end, std::string (PSDScanner::*scanName)())
{
    std::vector<std::string> names;
    while (scanner_.offset() < end) {
        names.push_back((scanner_.*scanName)());
    }
    return names;
}

void PSDDocumentReader::readLayerAndMaskInformation()
{
    const bool big = document_.bigFile;
    const std::int64_t length = big ? scanner_.scanInt64() : scanner_.scanInt32();
    const std::int64_t end = sectionEnd(scanner_.offset(), length);
    if (length >= 1) {
        const std::int64_t infoLength = big ? scanner_.scanInt64() : scanner_.scanInt32();
        if (infoLength > 0) {
            const std::int64_t infoEnd = sectionEnd(scanner_.offset(), infoLength);
            readLayerInformation();
            if (scanner_.offset() > infoEnd) {
                throw PSDException(PSDError::readUnknownError);
            }
            scanner_.seek(infoEnd);
        }
        if (scanner_.offset() < end) {
            const std::int64_t maskLength = scanner_.scanInt32();
            if (maskLength > 0) {
                document_.globalLayerMaskData = scanner_.scanData(maskLength);
            }
        }
        if (scanner_.offset() < end) {
            if (big) {
                readBigFileDocumentTaggedBlocks(end);
            } else {
                readDocumentTaggedBlocks(end, false);
            }
            if (propertyListData_) {
                applyHostPropertyList();
            }
        }
    }
    markSelectedLayers();
    scanner_.seek(end);
}

void PSDDocumentReader::readBigFileDocumentTaggedBlocks(std::int64_t end)
{
    const std::int64_t blocksStart = scanner_.offset();
    // What the blocks can change, kept for a second attempt. (Pattern bytes are kept apart from
    // their presence: a copied optional vector upsets some compilers' uninitialised-use analysis.)
    auto savedLayers = document_.layers;
    const std::size_t keptBlockCount = document_.uninterpretedBlocks.size();
    const bool savedFlag = document_.compositeImageHasAlphaChannel;
    const bool hadPatterns = document_.patternData.has_value();
    std::vector<std::uint8_t> savedPatterns =
        hadPatterns ? *document_.patternData : std::vector<std::uint8_t>{};
    try {
        readDocumentTaggedBlocks(end, false);
    } catch (const PSDException&) {
        const std::exception_ptr firstError = std::current_exception();
        document_.layers = std::move(savedLayers);
        document_.compositeImageHasAlphaChannel = savedFlag;
        document_.uninterpretedBlocks.resize(keptBlockCount);
        document_.patternData.reset();
        if (hadPatterns) {
            document_.patternData = std::move(savedPatterns);
        }
        propertyListData_.reset();
        scanner_.seek(blocksStart);
        try {
            readDocumentTaggedBlocks(end, true);
        } catch (const PSDException&) {
            std::rethrow_exception(firstError);
        }
    }
}

void PSDDocumentReader::readLayerInformation()
{
    if (scanner_.bytesRemaining() < 2) {
        throw PSDException(PSDError::readUnexpectedEndOfFile);
    }
    const std::int64_t count = scanner_.scanInt16();
    document_.compositeImageHasAlphaChannel = count < 0;
    const std::int64_t n = count < 0 ? -count : count;
    auto& layers = document_.layers;
    layers.clear();
    for (std::int64_t i = 0; i < n; ++i) {
        auto layer = std::make_shared<PSDLayerWrapper>(document_.bitDepth);
        layer->readLayerRecord(scanner_, document_.bigFile, options_.keepUnknownBlocks);
        layers.push_back(std::move(layer));
    }
    // Eager reading checks every layer's channels first and then decodes the layers in parallel;
    // a layer whose channels fail to read still reports its error after any earlier layer's.
    const bool eager = options_.imageDecoding == PSDImageDecoding::eager;
    const PSDImageDecoding decoding = eager ? PSDImageDecoding::onDemand : options_.imageDecoding;
    std::size_t channelsRead = 0;
    std::exception_ptr channelFailure;
    try {
        for (auto& layer : layers) {
            layer->readChannelImageData(scanner_, document_.bigFile, decoding, options_.threadCount);
            ++channelsRead;
        }
    } catch (...) {
        channelFailure = std::current_exception();
    }
    if (eager) {
        decodeLayerImages(channelsRead);
    }
    if (channelFailure) {
        std::rethrow_exception(channelFailure);
    }
}

void PSDDocumentReader::decodeLayerImages(std::size_t count)
{
    const auto& layers = document_.layers;
    detail::parallelForEach(count, detail::effectiveThreadCount(options_.threadCount), [&](std::size_t i) {
        (void)layers[i]->contentImage();
        (void)layers[i]->maskImage();
    });
}

void PSDDocumentReader::readDocumentTaggedBlocks(std::int64_t end, bool lengthsByKey)
{
    while (scanner_.offset() < end) {
        const PSDFourCharCode signature = scanner_.scanFourCharCode();
        const bool longSignature = signature == PSDFourCharCode("8B64");
        if (!longSignature && signature != PSDFourCharCode("8BIM")) {
            throw PSDException(PSDError::readCorruptFile);
        }
        const PSDFourCharCode key = scanner_.scanFourCharCode();
        const bool longLength = longSignature || (lengthsByKey && detail::usesLongLengthInBigFiles(key));
        const std::int64_t length = longLength ? scanner_.scanInt64() : scanner_.scanInt32();
        const std::int64_t blockStart = scanner_.offset();
        if (isLayerInformationKey(key)) {
            const auto blockEnd = detail::checkedAdd(scanner_.offset(), length);
            if (!blockEnd) {
                throw PSDException(PSDError::readCorruptFile);
            }
            readLayerInformation(); // a negative length fails the check below: the cursor never moves back
            if (scanner_.offset() > *blockEnd) {
                throw PSDException(PSDError::readUnknownError);
            }
            scanner_.seek(*blockEnd);
        } else if (key == PSDFourCharCode("Patt") || key == PSDFourCharCode("Pat2") ||
                   key == PSDFourCharCode("Pat3")) {
            document_.patternData = scanner_.scanData(length);
        } else if (key == PSDFourCharCode("plst")) {
            propertyListData_ = scanner_.scanData(length);
        } else if (!options_.keepUnknownBlocks) {
            scanner_.skip(length);
        }
        // Kept: every block but the layer blocks, which the writer always builds anew. The pattern
        // and property-list blocks are interpreted above and kept as well, so that they come back
        // under their own keys and in their place; the writer drops a kept copy of a block it
        // generates itself.
        if (options_.keepUnknownBlocks && !isLayerInformationKey(key)) {
            scanner_.seek(blockStart);
            document_.uninterpretedBlocks.push_back(
                readKeptBlock(scanner_, signature, key, longLength, length));
        }
        scanner_.skip((4 - length % 4) % 4);
    }
}

void PSDDocumentReader::applyHostPropertyList()
{
    const PropertyValue list = parsePropertyList(*propertyListData_);
    const auto* top = list.asDictionary();
    const auto host = HostApplication::current().bundleIdentifier;
    if (top == nullptr || !host) {
        return;
    }
    const auto entryIt = top->find(*host);
    if (entryIt == top->end() || !entryIt->second.isDictionary()) {
        return;
    }
    const PropertyDictionary& entry = *entryIt->second.asDictionary();
    document_.propertiesDictionary = entry;
    const auto layersIt = entry.find("PSD Layers");
    if (layersIt == entry.end() || !layersIt->second.isArray()) {
        return;
    }
    const PropertyArray& perLayer = *layersIt->second.asArray();
    for (std::size_t i = 0; i < document_.layers.size() && i < perLayer.size(); ++i) {
        const auto* element = perLayer[i].asDictionary();
        if (element == nullptr) {
            continue;
        }
        const auto idIt = element->find("PSD Layer ID");
        if (idIt == element->end()) {
            continue;
        }
        const auto* id = idIt->second.asInt();
        if (id != nullptr && *id == document_.layers[i]->layerID) {
            document_.layers[i]->setPropertiesDictionary(*element);
        }
    }
}

void PSDDocumentReader::markSelectedLayers()
{
    for (const std::int64_t id : document_.selectedLayerIDs) {
        for (auto& layer : document_.layers) {
            if (layer->layerID == id) {
                layer->selected = true;
            }
        }
    }
}

} // namespace psdkit::detail
