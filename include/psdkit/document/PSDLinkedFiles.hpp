#pragma once
// The files a document's smart objects place: embedded in the document or linked from outside.
// A read-only view over the document-level blocks "lnk2", "lnk3", "lnkD" and "lnkE".
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "psdkit/Export.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit {

/// One file a smart object places.
struct PSDKIT_EXPORT PSDLinkedFile {
    /// The identifier the smart object layers refer to it by.
    std::string identifier;
    /// The file's name as it was placed (UTF-8, without a trailing NUL).
    std::string fileName;
    /// The stored four-character file type with trailing spaces removed ("png", "PDF"), or, when
    /// none is stored, the extension of `fileName` ("" when it has none).
    std::string fileType;
    /// The file's size in bytes: the length of the embedded bytes, or the size recorded for a
    /// linked file (nothing when none is recorded).
    std::optional<std::uint64_t> byteCount;
    /// True when the file's bytes are stored in the document.
    bool embedded = false;
    /// The embedded bytes (empty for a linked file). Borrowed from the document's block: valid
    /// while the document lives and its blocks are not changed.
    std::span<const std::uint8_t> data;
};

/// Every placed file the document's linked-file blocks hold, in file order. The blocks are looked
/// for in `additionalLayerAndMaskInfo` and `uninterpretedBlocks` (the latter filled only when
/// the document was read with `PSDReadOptions::keepUnknownBlocks`). An entry that cannot be read
/// ends the list of its block; what was read before stays. Reading an entry's descriptors writes
/// their trace lines to the diagnostics sink. Never throws except std::bad_alloc.
[[nodiscard]] PSDKIT_EXPORT std::vector<PSDLinkedFile> linkedFiles(const PSDWrapper& document);

/// The file that the smart object layer `layer` of `document` places, found by the layer's
/// identifier (see `smartObjectIdentifier`); nothing when the layer is no smart object or its
/// file is not among `linkedFiles(document)`. Never throws except std::bad_alloc.
[[nodiscard]] PSDKIT_EXPORT std::optional<PSDLinkedFile> smartObjectFile(const PSDWrapper& document,
                                                                         const PSDLayerWrapper& layer);

} // namespace psdkit
