#include "psdkit/document/PSDLinkedFiles.hpp"

#include <array>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"

namespace psdkit {
namespace {

constexpr std::array<const char*, 4> kLinkedFileKeys = {"lnk2", "lnk3", "lnkD", "lnkE"};

bool isLinkedFileKey(const PSDFourCharCode& key)
{
    for (const char* candidate : kLinkedFileKeys) {
        if (key == PSDFourCharCode(std::string(candidate))) {
            return true;
        }
    }
    return false;
}

std::string trimmed(std::string text)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) {
        text.pop_back();
    }
    return text;
}

std::string extensionOf(const std::string& fileName)
{
    const auto dot = fileName.rfind('.');
    return dot == std::string::npos || dot + 1 == fileName.size() ? std::string() : fileName.substr(dot + 1);
}

void skipDescriptor(PSDScanner& scanner)
{
    PSDDescriptor descriptor;
    descriptor.read(scanner, false);
}

// One entry ("liFD" embedded, "liFE" external, "liFA" by alias) whose bytes are `entry`.
// Throws PSDException when it cannot be read.
PSDLinkedFile readEntry(std::span<const std::uint8_t> entry)
{
    PSDScanner scanner(entry);
    const PSDFourCharCode type = scanner.scanFourCharCode();
    const std::int64_t version = scanner.scanInt32();
    PSDLinkedFile file;
    file.identifier = trimmed(scanner.scanPascalString());
    file.fileName = trimmed(scanner.scanUnicodeString());
    file.fileType = trimmed(scanner.scanFourCharCode().rawValue());
    if (file.fileType.empty()) {
        file.fileType = extensionOf(file.fileName);
    }
    (void)scanner.scanFourCharCode(); // creator
    const std::int64_t dataLength = scanner.scanInt64();
    const bool embedded = type == PSDFourCharCode("liFD");
    if (embedded && dataLength >= 0) {
        file.byteCount = static_cast<std::uint64_t>(dataLength);
    }
    // What follows the names depends on descriptors this reader may not understand; an entry
    // whose rest cannot be read keeps its names and declared size.
    try {
        if (scanner.scanUInt8() != 0) {
            skipDescriptor(scanner); // the open parameters
        }
        if (embedded) {
            file.data = scanner.scanBytes(dataLength);
            file.embedded = true;
        } else if (type == PSDFourCharCode("liFE")) {
            skipDescriptor(scanner); // where the file was linked from
            if (version > 3) {
                scanner.skip(4 + 4 * 1 + 8); // year, month, day, hour, minute, seconds
            }
            const std::int64_t size = scanner.scanInt64();
            if (size >= 0) {
                file.byteCount = static_cast<std::uint64_t>(size);
            }
        }
    } catch (const PSDException&) {
        file.data = {};
    }
    return file;
}

void readBlock(std::span<const std::uint8_t> block, std::vector<PSDLinkedFile>& files)
{
    PSDScanner scanner(block);
    try {
        while (scanner.bytesRemaining() >= 8) {
            const std::int64_t length = scanner.scanInt64();
            if (length <= 0 || length > scanner.bytesRemaining()) {
                return;
            }
            const std::int64_t start = scanner.offset();
            files.push_back(
                readEntry(block.subspan(static_cast<std::size_t>(start), static_cast<std::size_t>(length))));
            // Entries are padded to a multiple of four bytes.
            const std::int64_t next = (start + length + 3) / 4 * 4;
            if (next >= scanner.offset() + scanner.bytesRemaining()) {
                return;
            }
            scanner.seek(next);
        }
    } catch (const PSDException&) {
        // An entry that cannot be read ends this block's list.
    }
}

} // namespace

std::vector<PSDLinkedFile> linkedFiles(const PSDWrapper& document)
{
    std::vector<PSDLinkedFile> files;
    for (const auto& [key, data] : document.additionalLayerAndMaskInfo) {
        if (isLinkedFileKey(key)) {
            readBlock(data, files);
        }
    }
    for (const PSDRawBlock& block : document.uninterpretedBlocks) {
        if (isLinkedFileKey(block.key)) {
            readBlock(block.data.span(), files);
        }
    }
    return files;
}

std::optional<PSDLinkedFile> smartObjectFile(const PSDWrapper& document, const PSDLayerWrapper& layer)
{
    const auto identifier = smartObjectIdentifier(layer);
    if (!identifier) {
        return std::nullopt;
    }
    for (PSDLinkedFile& file : linkedFiles(document)) {
        if (file.identifier == *identifier) {
            return std::move(file);
        }
    }
    return std::nullopt;
}

} // namespace psdkit
