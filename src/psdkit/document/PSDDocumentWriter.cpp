#include "psdkit/document/PSDDocumentWriter.hpp"

#include <limits>
#include <unordered_map>

#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/TaggedBlockWriting.hpp"
#include "psdkit/platform/LibraryResources.hpp"
#include "psdkit/platform/PropertyList.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit {
namespace {

[[noreturn]] void refuse()
{
    throw PSDException(PSDError::writeParameterError);
}

// Hands out the next new layer ID.
std::int64_t nextLayerID(std::int64_t& seed)
{
    if (seed == std::numeric_limits<std::int64_t>::max()) {
        refuse();
    }
    return seed++;
}

} // namespace

std::vector<std::uint8_t> PSDWrapper::serializedRepresentationWithCompositeImage(const image::PixelBufferType* composite)
{
    return PSDDocumentWriter(*this, composite).write();
}

std::vector<std::uint8_t> PSDDocumentWriter::write()
{
    writeHeader();
    writeColorModeData();
    repairLayerIDs();
    writeImageResources();
    writeLayerAndMaskInformation();
    writeImageData();
    return writer_.takeData();
}

void PSDDocumentWriter::writeHeader()
{
    const auto& doc = document_;
    writer_.appendFourCharCode(PSDFourCharCode("8BPS"));
    writer_.appendInt16(doc.bigFile ? 2 : 1);
    writer_.appendPadding(6);
    const auto alphaCount = static_cast<std::int64_t>(doc.alphaChannels ? doc.alphaChannels->size() : 0);
    writer_.appendInt16(4 + alphaCount);
    writer_.appendInt32(doc.imageHeight);
    writer_.appendInt32(doc.imageWidth);
    writer_.appendInt16(doc.bitDepth);
    writer_.appendInt16(static_cast<std::int64_t>(doc.colorMode));
}

void PSDDocumentWriter::writeColorModeData()
{
    writer_.writePSDDataBlock(false, 0, true, [&](PSDWriter& w) {
        if (document_.colorModeData) {
            w.appendData(*document_.colorModeData);
        } else if (document_.bitDepth == 32) {
            w.appendData(libraryResourceHDRToning());
        }
    });
}

void PSDDocumentWriter::repairLayerIDs()
{
    auto& doc = document_;
    for (const auto& layer : doc.layers) {
        if (doc.minimumNewLayerID <= layer->layerID) {
            if (layer->layerID == std::numeric_limits<std::int64_t>::max()) {
                refuse();
            }
            doc.minimumNewLayerID = layer->layerID + 1;
        }
    }
    // Of two layers that share an ID, the earlier one is renumbered: each layer, in list order, gets a
    // new ID when its ID is 0 or when any other layer holds the same ID at that moment. New IDs come
    // from above every existing ID, so a renumbered layer never matches again; counting the IDs in
    // use gives the same result as comparing every pair, in linear time.
    std::unordered_map<std::int64_t, std::size_t> holders;
    for (const auto& layer : doc.layers) {
        ++holders[layer->layerID];
    }
    for (const auto& layer : doc.layers) {
        auto& count = holders[layer->layerID];
        if (layer->layerID == 0 || count > 1) {
            --count;
            layer->layerID = nextLayerID(doc.minimumNewLayerID);
            ++holders[layer->layerID];
        }
    }
    doc.selectedLayerIDs.clear();
    for (const auto& layer : doc.layers) {
        if (layer->selected) {
            doc.selectedLayerIDs.push_back(layer->layerID);
        }
    }
}

void PSDDocumentWriter::writeImageResources()
{
    writer_.writePSDDataBlock(false, 0, true,
                              [&](PSDWriter& w) { writeImageResourceBlocks(w, document_, composite_ != nullptr); });
}

void PSDDocumentWriter::writeLayerInformationBody(PSDWriter& writer)
{
    auto& layers = document_.layers;
    writer.appendInt16(-static_cast<std::int64_t>(layers.size()));
    for (const auto& layer : layers) {
        if (layer->bitDepth != document_.bitDepth) {
            refuse();
        }
        layer->writeLayerRecord(writer, document_.bigFile);
    }
    for (const auto& layer : layers) {
        layer->writeChannelImageData(writer, document_.bigFile);
    }
}

void PSDDocumentWriter::writeLayerAndMaskInformation()
{
    auto& doc = document_;
    const bool big = doc.bigFile;
    writer_.writePSDDataBlock(big, 0, true, [&](PSDWriter& w) {
        w.writePSDDataBlock(big, 2, true, [&](PSDWriter& lw) {
            if (!doc.layers.empty() && doc.bitDepth == 8) {
                writeLayerInformationBody(lw);
            }
        });
        w.writePSDDataBlock(false, 0, true, [&](PSDWriter& mw) {
            if (doc.globalLayerMaskData) {
                mw.appendData(*doc.globalLayerMaskData);
            }
        });
        constexpr auto level = TaggedBlockLevel::document;
        for (const auto& [key, bytes] : doc.additionalLayerAndMaskInfo) {
            writeRawTaggedBlock(w, level, big, key, bytes);
        }
        if (!doc.layers.empty() && (doc.bitDepth == 16 || doc.bitDepth == 32)) {
            writeTaggedBlock(w, level, big, doc.bitDepth == 32 ? PSDFourCharCode("Lr32") : PSDFourCharCode("Lr16"),
                             [&](PSDWriter& lw) { writeLayerInformationBody(lw); });
        }
        if (doc.patternData) {
            writeRawTaggedBlock(w, level, big, PSDFourCharCode("Patt"), *doc.patternData);
        }
        if (!doc.propertiesDictionary.empty()) {
            const auto host = HostApplication::current().bundleIdentifier;
            if (!host) {
                refuse();
            }
            const auto list = xmlPropertyList(PropertyDictionary{{*host, PropertyValue(doc.propertiesDictionary)}});
            writeRawTaggedBlock(w, level, big, PSDFourCharCode("plst"), list);
        }
    });
}

void PSDDocumentWriter::writeImageData()
{
    const auto& doc = document_;
    // An empty composite is written uncompressed: run-length coding would still need a row byte
    // count per row, rows that hold nothing (a zero-width canvas of 10^8 rows: gigabytes).
    const bool empty = doc.imageWidth <= 0 || doc.imageHeight <= 0;
    const bool rle = doc.bitDepth == 8 && !empty && (doc.imageWidth > 8 || doc.imageHeight > 8);
    const auto compression = rle ? image::ChannelDataCompressionType::rle : image::ChannelDataCompressionType::none;
    if (composite_ == nullptr) {
        refuse();
    }
    const image::IntegralSize size{doc.imageWidth, doc.imageHeight};
    if (composite_->format() != colorPixelFormat(doc.bitDepth) || composite_->size() != size) {
        refuse();
    }
    std::vector<image::AnyChannelData> channels =
        composite_->makeChannelData(false, compression, image::PredictionType::none, false);
    if (doc.alphaChannels) {
        for (const auto& alpha : *doc.alphaChannels) {
            if (!alpha || !alpha->image) {
                continue;
            }
            if (alpha->image->size() != size || alpha->image->format() != grayPixelFormat(doc.bitDepth)) {
                refuse();
            }
            auto extra = alpha->image->makeChannelData(false, compression, image::PredictionType::none, false);
            for (auto& channel : extra) {
                channels.push_back(std::move(channel));
            }
        }
    }
    std::size_t total = 0;
    for (const auto& channel : channels) {
        total += channel.compressedData.size() + channel.rowByteCounts.size() * 4;
    }
    writer_.reserve(total + 2);
    writer_.appendUInt16(rle ? 1 : 0);
    if (rle) {
        for (const auto& channel : channels) {
            for (const std::int64_t count : channel.rowByteCounts) {
                if (doc.bigFile) {
                    writer_.appendInt32(count);
                } else {
                    writer_.appendInt16(count);
                }
            }
        }
    }
    for (const auto& channel : channels) {
        writer_.appendData(channel.compressedData);
    }
}

} // namespace psdkit
