// Reading one layer record: bounds, channel entries, blend mode, flags, and the extra data (mask
// data, blending ranges, name and the additional layer information blocks).
#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/layers/RawBlockReading.hpp"
#include "psdkit/layers/TaggedBlockKeys.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/platform/text/DebugText.hpp"

namespace psdkit {
namespace {

// `base` + `length`, refusing sums that do not fit 64 bits.
std::int64_t checkedEnd(std::int64_t base, std::int64_t length)
{
    const auto end = detail::checkedAdd(base, length);
    if (!end) {
        throw PSDException(PSDError::readCorruptFile);
    }
    return *end;
}

} // namespace

void PSDLayerWrapper::readLayerRecord(PSDScanner& scanner, bool bigFile, bool keepUnknownBlocks)
{
    const auto sampleType = detail::sampleTypeForDepth(bitDepth);
    if (!sampleType) {
        throw PSDException(PSDError::readParameterError);
    }
    contentsRect = scanner.scanMacRect();

    const std::int64_t channelCount = scanner.scanInt16();
    if (channelCount < 0) {
        throw PSDException(PSDError::readCorruptFile);
    }
    const std::int64_t entrySize = bigFile ? 10 : 6;
    if (scanner.bytesRemaining() >= channelCount * entrySize) {
        channelInfo.reserve(channelInfo.size() + static_cast<std::size_t>(channelCount));
    }
    for (std::int64_t i = 0; i < channelCount; ++i) {
        image::AnyChannelData channel(*sampleType, {}, true, image::ChannelDataCompressionType::none,
                                      image::PredictionType::none);
        if (scanner.bytesRemaining() < 2) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        channel.properties[channelIDKey] = scanner.scanInt16();
        if (scanner.bytesRemaining() < (bigFile ? 8 : 4)) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        channel.properties[readLengthKey] = bigFile ? scanner.scanInt64() : scanner.scanInt32();
        channelInfo.push_back(std::move(channel));
    }

    if (scanner.scanFourCharCode() != PSDFourCharCode("8BIM")) {
        throw PSDException(PSDError::readCorruptFile);
    }
    blendMode = scanner.scanFourCharCode();
    opacity = static_cast<double>(scanner.scanUInt8()) / 255.0;
    clipping = scanner.scanUInt8() != 0;
    const std::int64_t flags = scanner.scanUInt8();
    if ((flags & 0x01) != 0) {
        lockFlags |= 1;
    }
    visible = (flags & 0x02) == 0;
    if ((flags & 0x08) != 0) {
        pixelDataIrrelevantToAppearanceOfDocument = (flags & 0x10) != 0;
    }
    if (scanner.bytesRemaining() < 1) {
        throw PSDException(PSDError::readUnexpectedEndOfFile);
    }
    scanner.skip(1);

    const std::int64_t extraLength = scanner.scanInt32();
    const std::int64_t extraEnd = scanner.offset() + extraLength;
    if (scanner.offset() < extraEnd) {
        readMaskData(scanner);
    }
    if (scanner.offset() < extraEnd) {
        const std::int64_t rangesLength = scanner.scanInt32();
        if (rangesLength > 0) {
            layerBlendingRanges = scanner.scanData(rangesLength);
        }
    }
    if (scanner.offset() < extraEnd) {
        const std::int64_t before = scanner.offset();
        name = scanner.scanPascalString();
        const std::int64_t stored = scanner.offset() - before; // 1 + n, in bytes as stored
        if (stored % 4 != 0) {
            scanner.skip(4 - stored % 4);
        }
    }
    while (scanner.offset() < extraEnd) {
        readTaggedBlock(scanner, keepUnknownBlocks);
    }
    if (scanner.offset() != extraEnd) {
        throw PSDException(PSDError::readCorruptFile);
    }
}

void PSDLayerWrapper::readMaskData(PSDScanner& scanner)
{
    const std::int64_t size = scanner.scanInt32();
    const std::int64_t start = scanner.offset();
    if (size <= 0) {
        return;
    }
    hasLayerMask = true;
    maskRect = scanner.scanMacRect();
    maskDefaultColor = static_cast<double>(scanner.scanUInt8()) / 255.0;
    const std::int64_t flags = scanner.scanUInt8();
    maskIsPositionedRelativeToLayer = (flags & 0x01) != 0;
    maskDisabled = (flags & 0x02) != 0;
    maskCameFromRenderingOtherData = (flags & 0x08) != 0;
    if (size >= 36) {
        hasRealFlags = true;
        const std::int64_t realFlags = scanner.scanUInt8();
        realMaskIsPositionedRelativeToLayer = (realFlags & 0x01) != 0;
        realMaskDisabled = (realFlags & 0x02) != 0;
        realMaskCameFromRenderingOtherData = (realFlags & 0x08) != 0;
        realMaskDefaultColor = static_cast<double>(scanner.scanUInt8()) / 255.0;
        realMaskRect = scanner.scanMacRect();
    }
    if ((flags & 0x10) != 0) {
        const std::int64_t parameters = scanner.scanUInt8();
        if ((parameters & 0x01) != 0) {
            maskHasUserMaskDensity = true;
            userMaskDensity = static_cast<double>(scanner.scanUInt8()) / 255.0;
        }
        if ((parameters & 0x02) != 0) {
            maskHasUserMaskFeather = true;
            userMaskFeather = scanner.scanFloat64();
        }
        if ((parameters & 0x04) != 0) {
            maskHasVectorMaskDensity = true;
            vectorMaskDensity = static_cast<double>(scanner.scanUInt8()) / 255.0;
        }
        if ((parameters & 0x08) != 0) {
            maskHasVectorMaskFeather = true;
            vectorMaskFeather = scanner.scanFloat64();
        }
    }
    const std::int64_t rest = start + size - scanner.offset();
    if (rest < 0 || rest > 3) {
        throw PSDException(PSDError::readCorruptFile);
    }
    scanner.skip(rest);
}

void PSDLayerWrapper::readTaggedBlock(PSDScanner& scanner, bool keepUnknownBlocks)
{
    const PSDFourCharCode signature = scanner.scanFourCharCode();
    const bool eightByteLength = signature == PSDFourCharCode("8B64");
    if (!eightByteLength && signature != PSDFourCharCode("8BIM")) {
        throw PSDException(PSDError::readCorruptFile);
    }
    const PSDFourCharCode key = scanner.scanFourCharCode();
    if (diagnosticsEnabled()) {
        emitDiagnostic(detail::debugQuoted("Signature " + signature.debugDescription() + " Key " +
                                           key.debugDescription()));
    }
    const std::int64_t length = eightByteLength ? scanner.scanInt64() : scanner.scanInt32();
    const std::int64_t blockStart = scanner.offset();

    if (key == PSDFourCharCode("luni")) {
        if (length < 0) {
            throw PSDException(PSDError::readCorruptFile);
        }
        name = scanner.scanUnicodeString();
        scanner.seek(checkedEnd(blockStart, length));
    } else if (key == PSDFourCharCode("iOpa")) {
        if (length < 0) {
            throw PSDException(PSDError::readCorruptFile);
        }
        fillOpacity = static_cast<double>(scanner.scanUInt8()) / 255.0;
        scanner.seek(checkedEnd(blockStart, length));
    } else if (key == PSDFourCharCode("lyid")) {
        layerID = scanner.scanInt32();
    } else if (key == PSDFourCharCode("lclr")) {
        colorLabel = scanner.scanInt16();
        if (scanner.bytesRemaining() < 6) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        scanner.skip(6);
    } else if (key == PSDFourCharCode("lspf")) {
        lockFlags = scanner.scanUInt32();
    } else if (key == PSDFourCharCode("lsct") || key == PSDFourCharCode("lsdk")) {
        // "lsdk" opens a group nested in another one; its layout is that of "lsct".
        readSectionDivider(scanner, length);
    } else if (detail::isTaggedDataKey(key)) {
        taggedData.insertOrAssign(key, scanner.scanData(length));
        if (keepUnknownBlocks) {
            // A copy marks the block's place among the kept ones; the writer puts `taggedData`'s
            // bytes there.
            scanner.seek(blockStart);
            uninterpretedBlocks.push_back(
                detail::readKeptBlock(scanner, signature, key, eightByteLength, length));
        }
        if (const auto adjustment = adjustmentLayerTypeForKey(key)) {
            setType(PSDLayerType::adjustmentLayer(*adjustment));
        } else if (key == PSDFourCharCode("artb")) {
            setType(PSDLayerType::artboard());
        }
    } else if (keepUnknownBlocks) {
        uninterpretedBlocks.push_back(
            detail::readKeptBlock(scanner, signature, key, eightByteLength, length));
    } else {
        scanner.skip(length);
    }
    scanner.skip(length % 2);
}

void PSDLayerWrapper::readSectionDivider(PSDScanner& scanner, std::int64_t length)
{
    const std::int64_t dividerType = scanner.scanInt32();
    switch (dividerType) {
    case 0:
        break;
    case 1:
    case 2:
        if (type_.kind() == PSDLayerType::Kind::regular) {
            setType(PSDLayerType::group());
            pixelDataIrrelevantToAppearanceOfDocument = true;
            expanded = dividerType == 1;
        }
        break;
    case 3:
        setType(PSDLayerType::sectionDivider());
        pixelDataIrrelevantToAppearanceOfDocument = true;
        break;
    default:
        throw PSDException(PSDError::readCorruptFile);
    }
    if (length >= 12) {
        if (scanner.scanFourCharCode() != PSDFourCharCode("8BIM")) {
            throw PSDException(PSDError::readCorruptFile);
        }
        blendMode = scanner.scanFourCharCode();
    }
    if (length >= 16) {
        subtype = scanner.scanInt32() == 1 ? PSDLayerType::sceneGroup() : PSDLayerType::regular();
    }
}

} // namespace psdkit
