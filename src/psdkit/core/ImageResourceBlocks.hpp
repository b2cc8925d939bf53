#pragma once
// The one walk over an image resources section, shared by the document reader and the metadata
// service: the section's length, then "8BIM" blocks of an identifier, a padded name, a data size,
// the data and a pad byte after odd data, until the declared end.
#include <cstdint>
#include <string>

#include "psdkit/core/CheckedArithmetic.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDScanner.hpp"

namespace psdkit::detail {

/// One block's framing, read up to the start of its data.
struct ImageResourceBlockHeader {
    std::int64_t id = 0;
    std::string name;
    std::int64_t dataSize = 0;
};

/// Reads the image resources section at the scanner's cursor: its 4-byte length, then each block
/// until the cursor reaches the declared end. For each block, `handle(header)` is called with the
/// cursor at the block's data; it consumes what it reads, and the cursor is not moved to the
/// data's declared end afterwards. The pad byte of odd data is then skipped. Leaves the cursor at
/// the section's declared end, wherever the last block ended. Throws `PSDException`:
/// readCorruptFile for a negative or overflowing section length and for a block signature other
/// than "8BIM"; readParameterError for a negative odd data size (its pad byte would be skipped
/// backwards); what the scanner and `handle` throw.
template <typename Handle> void readImageResourceBlocks(PSDScanner& scanner, Handle&& handle)
{
    const std::int64_t length = scanner.scanInt32();
    const auto end = length < 0 ? std::nullopt : checkedAdd(scanner.offset(), length);
    if (!end) {
        throw PSDException(PSDError::readCorruptFile);
    }
    while (scanner.offset() < *end) {
        if (scanner.scanFourCharCode() != PSDFourCharCode("8BIM")) {
            throw PSDException(PSDError::readCorruptFile);
        }
        ImageResourceBlockHeader header;
        header.id = scanner.scanInt16();
        const std::int64_t nameStart = scanner.offset();
        header.name = scanner.scanPascalString();
        if ((scanner.offset() - nameStart) % 2 != 0) {
            scanner.skip(1); // the length byte and the name fill an even number of bytes
        }
        header.dataSize = scanner.scanInt32();
        if (header.dataSize < 0 && header.dataSize % 2 != 0) {
            throw PSDException(PSDError::readParameterError);
        }
        const std::int64_t size = header.dataSize;
        handle(header);
        scanner.skip(size % 2 != 0 ? 1 : 0);
    }
    scanner.seek(*end);
}

} // namespace psdkit::detail
