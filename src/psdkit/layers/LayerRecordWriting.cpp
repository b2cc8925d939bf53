// Writing one layer: preparing its channels for export, its record, and its channel image data.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/core/WriteValues.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/PSDCompressionType.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/layers/TaggedBlockWriting.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit {
namespace {

[[noreturn]] void refuse()
{
    throw PSDException(PSDError::writeParameterError);
}

// Blend modes a 32-bit record cannot hold; they are written as "norm" and remembered in the
// layer's "PSD Blend Mode" property.
bool lacksHighDepthForm(const PSDFourCharCode& mode)
{
    static const PSDFourCharLiteral kModes[] = {"idiv", "lbrn", "scrn", "div ", "over", "sLit",
                                                "hLit", "vLit", "lLit", "pLit", "hMix", "smud"};
    for (const auto& m : kModes) {
        if (m == mode) {
            return true;
        }
    }
    return false;
}

std::int64_t flagBit(bool value, int bit)
{
    return value ? (std::int64_t{1} << bit) : 0;
}

std::int64_t storedChannelLength(const image::AnyChannelData& channel, bool bigFile)
{
    const auto rows = static_cast<std::int64_t>(channel.rowByteCounts.size());
    const std::int64_t counts =
        channel.compressionType == image::ChannelDataCompressionType::rle ? rows * (bigFile ? 4 : 2) : 0;
    const auto length =
        detail::checkedAdd(2 + counts, static_cast<std::int64_t>(channel.compressedData.size()));
    if (!length) {
        throw PSDException(PSDError::writeParameterError);
    }
    return *length;
}

} // namespace

void PSDLayerWrapper::prepareChannelDataForExport(bool mayUseWorkerThread)
{
    channelDataPreparedForExport.clear();
    const auto contentFormat = image::colorPixelFormatForDepth(bitDepth);
    const auto maskFormat = image::grayPixelFormatForDepth(bitDepth);
    if (!contentFormat || !maskFormat) {
        refuse();
    }
    // Images read on demand are decoded here (and may throw as reading them would have).
    const auto content = contentImage();
    const auto mask = hasLayerMask ? maskImage() : nullptr;
    if (!content) {
        for (const std::int64_t id : {0, 1, 2, -1}) {
            channelDataPreparedForExport.emplace(
                id,
                image::AnyChannelData(image::SampleType::uint8, {}, true,
                                      image::ChannelDataCompressionType::none, image::PredictionType::none));
        }
    } else {
        const image::IntegralSize size = content->size();
        if (content->format() != *contentFormat || size != contentsRect.size()) {
            refuse();
        }
        auto compression = image::ChannelDataCompressionType::none;
        auto prediction = image::PredictionType::none;
        if (size.width > 8 || size.height > 8) {
            if (bitDepth == 8) {
                compression = image::ChannelDataCompressionType::rle;
            } else {
                compression = image::ChannelDataCompressionType::zip;
                prediction = image::PredictionType::prediction;
            }
        }
        auto channels = content->makeChannelData(false, compression, prediction, mayUseWorkerThread);
        if (channels.size() < 4) {
            refuse();
        }
        const std::int64_t ids[] = {0, 1, 2, -1};
        for (std::size_t i = 0; i < 4; ++i) {
            channelDataPreparedForExport.emplace(ids[i], std::move(channels[i]));
        }
    }
    if (hasLayerMask && mask) {
        const image::IntegralSize size = mask->size();
        if (mask->format() != *maskFormat || size != maskRect.size()) {
            refuse();
        }
        auto compression = image::ChannelDataCompressionType::none;
        auto prediction = image::PredictionType::none;
        if (bitDepth != 8) {
            compression = image::ChannelDataCompressionType::zip;
            prediction = image::PredictionType::prediction;
        } else if (size.width > 8 || size.height > 8) {
            compression = image::ChannelDataCompressionType::rle;
        }
        auto channels = mask->makeChannelData(false, compression, prediction, mayUseWorkerThread);
        if (channels.empty()) {
            refuse();
        }
        channelDataPreparedForExport.emplace(-2, std::move(channels.front()));
    }
}

void PSDLayerWrapper::writeLayerRecord(PSDWriter& writer, bool bigFile, bool channelsPrepared)
{
    writer.appendMacRect(contentsRect);
    if (!channelsPrepared) {
        prepareChannelDataForExport();
    }
    writer.appendInt16(static_cast<std::int64_t>(channelDataPreparedForExport.size()));
    for (const std::int64_t id : writtenChannelOrder) {
        const auto it = channelDataPreparedForExport.find(id);
        if (it == channelDataPreparedForExport.end()) {
            continue;
        }
        writer.appendInt16(id);
        const std::int64_t length = storedChannelLength(it->second, bigFile);
        if (bigFile) {
            writer.appendInt64(length);
        } else {
            writer.appendInt32(length);
        }
    }

    writer.appendFourCharCode(PSDFourCharCode("8BIM"));
    if (blendMode == PSDFourCharCode("pass")) {
        writer.appendFourCharCode(PSDFourCharCode("norm"));
    } else if (bitDepth == 32 && lacksHighDepthForm(blendMode)) {
        setProperty("PSD Blend Mode", PropertyValue(blendMode));
        writer.appendFourCharCode(PSDFourCharCode("norm"));
    } else {
        writer.appendFourCharCode(blendMode);
    }
    writer.appendUInt8(detail::fractionByte(opacity));
    writer.appendUInt8(clipping ? 1 : 0);
    writer.appendUInt8(flagBit((lockFlags & 1) != 0, 0) | flagBit(!visible, 1) |
                       (pixelDataIrrelevantToAppearanceOfDocument ? 0x18 : 0));
    writer.appendUInt8(0);

    writer.writePSDDataBlock(false, 0, true, [&](PSDWriter& w) {
        w.writePSDDataBlock(false, 4, true, [&](PSDWriter& mw) { writeMaskData(mw); });
        w.writePSDDataBlock(false, 0, true, [&](PSDWriter& bw) {
            if (layerBlendingRanges) {
                bw.appendData(*layerBlendingRanges);
            }
        });
        w.appendPascalString(name, 4);
        writeTaggedBlocks(w, bigFile);
    });
}

void PSDLayerWrapper::writeMaskData(PSDWriter& writer) const
{
    if (!hasLayerMask) {
        return;
    }
    const bool hasParameters = maskHasUserMaskDensity || maskHasUserMaskFeather || maskHasVectorMaskDensity ||
                               maskHasVectorMaskFeather;
    const std::int64_t parameterBytes =
        hasParameters ? 1 + (maskHasUserMaskDensity ? 1 : 0) + (maskHasUserMaskFeather ? 8 : 0) +
                            (maskHasVectorMaskDensity ? 1 : 0) + (maskHasVectorMaskFeather ? 8 : 0)
                      : 0;
    // A reader takes a mask body of 36 bytes or more to hold the real-mask fields. Without them,
    // parameters can push the padded body to 36 bytes; the real fields are then written too, as a
    // copy of the user mask's, so that the record reads back as written.
    const bool writeRealFields = hasRealFlags || 18 + parameterBytes > 32;
    const bool realFromUserMask = !hasRealFlags;

    writer.appendMacRect(maskRect);
    writer.appendUInt8(detail::fractionByte(maskDefaultColor));
    writer.appendUInt8(flagBit(maskIsPositionedRelativeToLayer, 0) | flagBit(maskDisabled, 1) |
                       flagBit(maskCameFromRenderingOtherData, 3) | flagBit(hasParameters, 4));
    if (writeRealFields) {
        if (realFromUserMask) {
            writer.appendUInt8(flagBit(maskIsPositionedRelativeToLayer, 0) | flagBit(maskDisabled, 1) |
                               flagBit(maskCameFromRenderingOtherData, 3));
            writer.appendUInt8(detail::fractionByte(maskDefaultColor));
            writer.appendMacRect(maskRect);
        } else {
            writer.appendUInt8(flagBit(realMaskIsPositionedRelativeToLayer, 0) |
                               flagBit(realMaskDisabled, 1) | flagBit(realMaskCameFromRenderingOtherData, 3));
            writer.appendUInt8(detail::fractionByte(realMaskDefaultColor));
            writer.appendMacRect(realMaskRect);
        }
    }
    if (hasParameters) {
        writer.appendUInt8(flagBit(maskHasUserMaskDensity, 0) | flagBit(maskHasUserMaskFeather, 1) |
                           flagBit(maskHasVectorMaskDensity, 2) | flagBit(maskHasVectorMaskFeather, 3));
        if (maskHasUserMaskDensity) {
            writer.appendUInt8(detail::fractionByte(userMaskDensity));
        }
        if (maskHasUserMaskFeather) {
            writer.appendFloat64(userMaskFeather);
        }
        if (maskHasVectorMaskDensity) {
            writer.appendUInt8(detail::fractionByte(vectorMaskDensity));
        }
        if (maskHasVectorMaskFeather) {
            writer.appendFloat64(vectorMaskFeather);
        }
    }
}

void PSDLayerWrapper::writeTaggedBlocks(PSDWriter& writer, bool bigFile) const
{
    constexpr auto level = detail::TaggedBlockLevel::layer;
    if (fillOpacity < 1.0) {
        detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("iOpa"), [&](PSDWriter& w) {
            w.appendUInt8(detail::fractionByte(fillOpacity));
            w.appendPadding(3);
        });
    }
    detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("luni"),
                             [&](PSDWriter& w) { w.appendUnicodeString(name, false, 4); });
    detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("lyid"),
                             [&](PSDWriter& w) { w.appendInt32(layerID); });
    detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("lclr"), [&](PSDWriter& w) {
        w.appendInt16(colorLabel);
        w.appendPadding(6);
    });
    detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("lspf"),
                             [&](PSDWriter& w) { w.appendUInt32(lockFlags); });
    // Artboards open a group too: without their divider setting, the divider that closes them
    // would be left unbalanced for every reader. Read back, "lsct" makes the record a group and
    // the kept "artb" block makes it an artboard again.
    const auto kind = type_.kind();
    if (kind == PSDLayerType::Kind::group || kind == PSDLayerType::Kind::sectionDivider ||
        kind == PSDLayerType::Kind::artboard) {
        detail::writeTaggedBlock(writer, level, bigFile, PSDFourCharCode("lsct"), [&](PSDWriter& w) {
            if (type_.kind() == PSDLayerType::Kind::sectionDivider) {
                w.appendInt32(3);
                return;
            }
            w.appendInt32(expanded ? 1 : 2);
            w.appendFourCharCode(PSDFourCharCode("8BIM"));
            w.appendFourCharCode(blendMode);
            w.appendInt32(subtype.kind() == PSDLayerType::Kind::sceneGroup ? 1 : 0);
        });
    }
    const auto hasKeptPlace = [&](const PSDFourCharCode& key) {
        return std::any_of(uninterpretedBlocks.begin(), uninterpretedBlocks.end(),
                           [&](const PSDRawBlock& block) { return block.key == key; });
    };
    for (const auto& [key, bytes] : taggedData) {
        if (!hasKeptPlace(key)) {
            detail::writeRawTaggedBlock(writer, level, bigFile, key, bytes);
        }
    }
    writeKeptBlocks(writer);
}

void PSDLayerWrapper::writeKeptBlocks(PSDWriter& writer) const
{
    for (std::size_t i = 0; i < uninterpretedBlocks.size(); ++i) {
        const PSDRawBlock& block = uninterpretedBlocks[i];
        if (detail::isGeneratedLayerBlockKey(block.key)) {
            continue;
        }
        const auto kept = taggedData.find(block.key);
        if (kept == taggedData.end()) {
            if (!detail::isTaggedDataKey(block.key)) { // a removed entry's copy goes with it
                detail::writeKeptBlock(writer, detail::TaggedBlockLevel::layer, block, false);
            }
            continue;
        }
        // The place of a `taggedData` entry: its last kept copy gets the entry's current bytes, in
        // the copy's framing; earlier copies of the key are left out, as reading kept the last.
        const bool later = std::any_of(uninterpretedBlocks.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                       uninterpretedBlocks.end(),
                                       [&](const PSDRawBlock& other) { return other.key == block.key; });
        if (!later) {
            detail::writeKeptBlock(
                writer, detail::TaggedBlockLevel::layer,
                PSDRawBlock{block.signature, block.key, block.longLength, PSDSharedBytes(kept->second)},
                false);
        }
    }
}

void PSDLayerWrapper::writeChannelImageData(PSDWriter& writer, bool bigFile)
{
    for (const std::int64_t id : writtenChannelOrder) {
        const auto it = channelDataPreparedForExport.find(id);
        if (it == channelDataPreparedForExport.end()) {
            continue;
        }
        const image::AnyChannelData& channel = it->second;
        const auto code = psdCompressionType(channel.compressionType, channel.predictionType);
        if (!code) {
            std::fputs("Unsupported prediction type.\n", stderr);
            std::abort();
        }
        writer.appendUInt16(static_cast<std::int64_t>(*code));
        if (*code == PSDCompressionType::rle) {
            for (const std::int64_t count : channel.rowByteCounts) {
                if (bigFile) {
                    writer.appendInt32(count);
                } else {
                    writer.appendInt16(count);
                }
            }
        }
        writer.appendData(channel.compressedData);
        channelDataPreparedForExport.erase(it); // released as soon as it is written
    }
    channelDataPreparedForExport.clear();
}

} // namespace psdkit
