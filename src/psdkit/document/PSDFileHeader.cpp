#include "psdkit/document/PSDFileHeader.hpp"

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDScanner.hpp"

namespace psdkit {

PSDFileHeader probePSDFileHeader(std::span<const std::uint8_t> data)
{
    PSDScanner scanner(data);
    if (scanner.scanFourCharCode() != PSDFourCharCode("8BPS")) {
        throw PSDException(PSDError::readCorruptFile, "the file does not start with the signature 8BPS");
    }
    PSDFileHeader header;
    const std::int64_t version = scanner.scanInt16();
    if (version != 1 && version != 2) {
        throw PSDException(PSDError::readUnknownFileVersion, "header version " + std::to_string(version));
    }
    header.bigFile = version == 2;
    scanner.skip(6);
    header.numberOfChannels = scanner.scanInt16();
    header.height = scanner.scanInt32();
    header.width = scanner.scanInt32();
    header.bitDepth = scanner.scanInt16();
    header.colorMode = scanner.scanInt16();
    return header;
}

std::string colorModeName(std::int64_t colorMode)
{
    switch (colorMode) {
    case 0:
        return "bitmap";
    case 1:
        return "grayscale";
    case 2:
        return "indexed";
    case 3:
        return "RGB";
    case 4:
        return "CMYK";
    case 7:
        return "multichannel";
    case 8:
        return "duotone";
    case 9:
        return "Lab";
    default:
        return "mode " + std::to_string(colorMode);
    }
}

std::string describeColorModeAndDepth(std::int64_t colorMode, std::int64_t bitDepth)
{
    return colorModeName(colorMode) + ", " + std::to_string(bitDepth) + (bitDepth == 1 ? " bit" : " bits") +
           " per channel";
}

} // namespace psdkit
