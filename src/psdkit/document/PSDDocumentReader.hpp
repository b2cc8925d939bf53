#pragma once
// The document reader: fills a PSDWrapper from a file's bytes, section by section, on one scanner.
//
// Big files and 8-byte block lengths: under the format's rule, the width of a document-level
// tagged block's length follows its signature alone ("8BIM": 4 bytes, "8B64": 8 bytes). Big files
// written by widely used editors break that rule: they sign blocks such as "Lr16", "Lr32" and
// "LMsk" "8BIM" and still give them 8-byte lengths. So, only for a big file, and only when reading
// the document-level tagged blocks (the blocks after the global layer mask) fails with a
// PSDException, the reader restores what that loop changed (layers, the merged-transparency flag,
// pattern data, the remembered property list) and reads the loop once more from its start, this
// time taking 8-byte lengths for "8BIM" blocks whose key is one of those our writer signs "8B64"
// in big files. If that second attempt fails too, the read fails with the first attempt's error.
// Files that read under the rule read exactly as before.
#include <cstdint>
#include <optional>
#include <vector>

#include "psdkit/core/ImageResourceBlocks.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/document/PSDReadOptions.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::detail {

class PSDDocumentReader {
  public:
    PSDDocumentReader(PSDWrapper& document, std::span<const std::uint8_t> data,
                      const PSDReadOptions& options = {})
        : document_(document), data_(data), scanner_(data), options_(options)
    {
    }
    /// A reader over shared bytes: channel planes (and whatever else is taken with `sharedSlice`)
    /// then refer to `data`'s storage instead of being copied.
    PSDDocumentReader(PSDWrapper& document, const PSDSharedBytes& data, const PSDReadOptions& options = {})
        : document_(document), data_(data.span()), scanner_(data), options_(options)
    {
    }
    /// Reads the whole file into the document; throws on the first failure.
    void read();

  private:
    void readHeader();
    void readColorModeData();
    void readImageResources();
    // One block, with the cursor at its data; the metadata resources are noted in `metadata`.
    void readImageResource(detail::ImageResourceBlockHeader& block, ImageMetadata::Resources& metadata);
    // Names one after another until the cursor reaches `end`.
    std::vector<std::string> readNames(std::int64_t end, std::string (PSDScanner::*scanName)());
    void readLayerAndMaskInformation();
    void readLayerInformation();
    void readDocumentTaggedBlocks(std::int64_t sectionEnd, bool lengthsByKey);
    // The same for a big file, with the second attempt described above.
    void readBigFileDocumentTaggedBlocks(std::int64_t sectionEnd);
    void applyHostPropertyList();
    // A document without layers has no layer count to mark its composite's transparency. Our
    // writer then names channel 3 "Transparency" in front of the alpha channel names (the Unicode
    // form with its terminating NUL); that placeholder marks channel 3 as the transparency.
    void recognizeLayerlessTransparency();
    void markSelectedLayers();
    // The next `length` bytes, sharing the input's storage when the reader was given shared bytes
    // and copied otherwise. Throws as `PSDScanner::scanData`.
    [[nodiscard]] PSDSharedBytes sharedSlice(std::int64_t length) { return scanner_.scanSharedData(length); }
    // Decodes the images of the first `count` layers on the thread pool; throws the failure of the
    // lowest layer (content before mask), as decoding them in order would.
    void decodeLayerImages(std::size_t count);
    void readImageData();
    void buildAlphaChannels();

    PSDWrapper& document_;
    std::span<const std::uint8_t> data_;
    PSDScanner scanner_;
    PSDReadOptions options_;
    std::optional<std::vector<std::uint8_t>> propertyListData_;
};

} // namespace psdkit::detail
