#include "psdkit/document/PSDDocumentWriter.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "psdkit/core/ChunkedOutputSink.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/TaggedBlockKeys.hpp"
#include "psdkit/layers/TaggedBlockWriting.hpp"
#include "psdkit/platform/LibraryResources.hpp"
#include "psdkit/platform/PropertyList.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "psdkit/platform/support/HostApplication.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit::detail {
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

bool isFullyOpaque(const image::PixelBufferType& image)
{
    const auto bytes = image.bytes();
    const auto all = [&](std::size_t stride, std::size_t offset, auto opaque) {
        using Sample = decltype(opaque);
        for (std::size_t at = offset; at + sizeof(Sample) <= bytes.size(); at += stride) {
            Sample sample{};
            std::memcpy(&sample, bytes.data() + at, sizeof(Sample));
            if (sample != opaque) {
                return false;
            }
        }
        return true;
    };
    switch (image.format()) {
    case image::PixelFormat::argb8:
        return all(4, 0, std::uint8_t{255});
    case image::PixelFormat::rgba16:
        return all(8, 6, std::uint16_t{65535});
    case image::PixelFormat::rgba32:
        return all(16, 12, 1.0F);
    default:
        return false;
    }
}

} // namespace

void PSDDocumentWriter::write()
{
    checkWritable();
    compositeTransparency_ = writesCompositeTransparency();
    writeHeader();
    writeColorModeData();
    repairLayerIDs();
    writeImageResources();
    writeLayerAndMaskInformation();
    writeImageData();
    writer_.flush();
}

void PSDDocumentWriter::writeHeader()
{
    const auto& doc = document_;
    writer_.appendFourCharCode(PSDFourCharCode("8BPS"));
    writer_.appendInt16(doc.bigFile ? 2 : 1);
    writer_.appendPadding(6);
    const auto alphaCount = static_cast<std::int64_t>(doc.alphaChannels ? doc.alphaChannels->size() : 0);
    writer_.appendInt16((compositeTransparency_ ? 4 : 3) + alphaCount);
    writer_.appendInt32(doc.imageHeight);
    writer_.appendInt32(doc.imageWidth);
    writer_.appendInt16(doc.bitDepth);
    writer_.appendInt16(static_cast<std::int64_t>(doc.colorMode));
}

// Only a negative layer count marks the composite's fourth channel as its transparency, and a
// document without layers has no layer count to carry the sign. So a layerless document with an
// opaque composite is written as real files without layers are: three colour channels, then the
// alpha channels. One whose composite has transparency keeps it as channel 3, named by the
// placeholder "Transparency" in front of the alpha channel names, which the reader recognises.
bool PSDDocumentWriter::writesCompositeTransparency() const
{
    if (!document_.layers.empty() || composite_ == nullptr) {
        return true;
    }
    return !isFullyOpaque(*composite_);
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
    // Holders are counted per object: a layer listed twice is compared with other layers only, never
    // with itself.
    std::unordered_map<std::int64_t, std::size_t> holders;
    std::unordered_set<const PSDLayerWrapper*> counted;
    for (const auto& layer : doc.layers) {
        if (counted.insert(layer.get()).second) {
            ++holders[layer->layerID];
        }
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
    writer_.writePSDDataBlock(false, 0, true, [&](PSDWriter& w) {
        writeImageResourceBlocks(w, document_, composite_ != nullptr, compositeTransparency_);
    });
}

void PSDDocumentWriter::writeLayerInformationBody(PSDWriter& writer)
{
    auto& layers = document_.layers;
    const auto preparationFailures = prepareLayerChannels();
    writer.appendInt16(-static_cast<std::int64_t>(layers.size()));
    for (std::size_t i = 0; i < layers.size(); ++i) {
        if (layers[i]->bitDepth != document_.bitDepth) {
            refuse();
        }
        if (preparationFailures[i]) {
            std::rethrow_exception(preparationFailures[i]);
        }
        layers[i]->writeLayerRecord(writer, document_.bigFile, true);
    }
    for (const auto& layer : layers) {
        layer->writeChannelImageData(writer, document_.bigFile);
    }
}

std::vector<std::exception_ptr> PSDDocumentWriter::prepareLayerChannels()
{
    // Every layer's channels are encoded at once on the thread pool; each layer's failure is kept
    // and thrown where writing the layers in order reaches that layer, so the error is the one a
    // single thread would meet first.
    // A layer listed twice is prepared once (its channels are the same at both places).
    auto& layers = document_.layers;
    std::vector<std::exception_ptr> failures(layers.size());
    std::vector<std::size_t> firstPlaces;
    std::unordered_map<const PSDLayerWrapper*, std::size_t> placeOf;
    for (std::size_t i = 0; i < layers.size(); ++i) {
        if (placeOf.emplace(layers[i].get(), i).second) {
            firstPlaces.push_back(i);
        }
    }
    detail::parallelForEach(firstPlaces.size(), threadCount_, [&](std::size_t k) {
        const std::size_t i = firstPlaces[k];
        if (layers[i]->bitDepth != document_.bitDepth) {
            return; // refused in order by the caller
        }
        try {
            layers[i]->prepareChannelDataForExport(threadCount_ > 1);
        } catch (...) {
            failures[i] = std::current_exception();
        }
    });
    for (std::size_t i = 0; i < layers.size(); ++i) {
        failures[i] = failures[placeOf.at(layers[i].get())];
    }
    return failures;
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
        constexpr auto level = detail::TaggedBlockLevel::document;
        for (const auto& [key, bytes] : doc.additionalLayerAndMaskInfo) {
            detail::writeRawTaggedBlock(w, level, big, key, bytes);
        }
        if (!doc.layers.empty() && (doc.bitDepth == 16 || doc.bitDepth == 32)) {
            detail::writeTaggedBlock(w, level, big,
                                     doc.bitDepth == 32 ? PSDFourCharCode("Lr32") : PSDFourCharCode("Lr16"),
                                     [&](PSDWriter& lw) { writeLayerInformationBody(lw); });
        }
        if (doc.patternData && !keptPatternBlocksHoldPatternData()) {
            detail::writeRawTaggedBlock(w, level, big, PSDFourCharCode("Patt"), *doc.patternData);
        }
        if (!doc.propertiesDictionary.empty()) {
            const auto host = HostApplication::current().bundleIdentifier;
            if (!host) {
                refuse();
            }
            const auto list =
                xmlPropertyList(PropertyDictionary{{*host, PropertyValue(doc.propertiesDictionary)}});
            detail::writeRawTaggedBlock(w, level, big, PSDFourCharCode("plst"), list);
        }
        writeKeptDocumentBlocks(w);
    });
}

bool PSDDocumentWriter::keptPatternBlocksHoldPatternData() const
{
    const auto& kept = document_.uninterpretedBlocks;
    const auto last =
        std::find_if(kept.rbegin(), kept.rend(), [](const PSDRawBlock& b) { return isPatternKey(b.key); });
    return document_.patternData && last != kept.rend() &&
           std::ranges::equal(last->data.span(), std::span<const std::uint8_t>(*document_.patternData));
}

void PSDDocumentWriter::writeKeptDocumentBlocks(PSDWriter& writer) const
{
    const auto& doc = document_;
    const bool keepPatterns = keptPatternBlocksHoldPatternData();
    for (const auto& block : doc.uninterpretedBlocks) {
        const auto& key = block.key;
        const bool generated = key == PSDFourCharCode("Layr") || key == PSDFourCharCode("Lr16") ||
                               key == PSDFourCharCode("Lr32") ||
                               (key == PSDFourCharCode("plst") && !doc.propertiesDictionary.empty()) ||
                               (isPatternKey(key) && !keepPatterns) ||
                               doc.additionalLayerAndMaskInfo.contains(key);
        if (!generated) {
            detail::writeKeptBlock(writer, detail::TaggedBlockLevel::document, block, doc.bigFile);
        }
    }
}

void PSDDocumentWriter::writeImageData()
{
    const auto& doc = document_;
    // An empty composite is written uncompressed: run-length coding would still need a row byte
    // count per row, rows that hold nothing (a zero-width canvas of 10^8 rows: gigabytes).
    const bool empty = doc.imageWidth <= 0 || doc.imageHeight <= 0;
    const bool rle = doc.bitDepth == 8 && !empty && (doc.imageWidth > 8 || doc.imageHeight > 8);
    const auto compression =
        rle ? image::ChannelDataCompressionType::rle : image::ChannelDataCompressionType::none;
    if (composite_ == nullptr) {
        refuse();
    }
    const image::IntegralSize size{doc.imageWidth, doc.imageHeight};
    if (composite_->format() != image::colorPixelFormatForDepth(doc.bitDepth) || composite_->size() != size) {
        refuse();
    }
    std::vector<image::AnyChannelData> channels = composite_->makeChannelData(
        !compositeTransparency_, compression, image::PredictionType::none, threadCount_ > 1);
    if (doc.alphaChannels) {
        for (const auto& alpha : *doc.alphaChannels) {
            if (!alpha || !alpha->image) {
                continue;
            }
            if (alpha->image->size() != size ||
                alpha->image->format() != image::grayPixelFormatForDepth(doc.bitDepth)) {
                refuse();
            }
            auto extra = alpha->image->makeChannelData(false, compression, image::PredictionType::none,
                                                       threadCount_ > 1);
            for (auto& channel : extra) {
                channels.push_back(std::move(channel));
            }
        }
    }
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
    // Each channel is released as soon as it is written.
    for (auto& channel : channels) {
        writer_.appendData(channel.compressedData);
        std::vector<std::uint8_t>().swap(channel.compressedData);
    }
}

} // namespace psdkit::detail
