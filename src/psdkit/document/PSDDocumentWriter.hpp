#pragma once
// The document writer: the bytes of a complete file, from front to back on one PSDWriter —
// header, colour mode data, image resources, layer and mask information, image data.
#include <cstdint>
#include <exception>
#include <vector>

#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit {

class PSDDocumentWriter {
public:
    PSDDocumentWriter(PSDWrapper& document, const image::PixelBufferType* composite)
        : document_(document), composite_(composite)
    {
    }
    /// Writes the whole file and hands over its bytes; throws on the first failure.
    [[nodiscard]] std::vector<std::uint8_t> write();

private:
    void writeHeader();
    void writeColorModeData();
    void repairLayerIDs();
    void writeImageResources();
    void writeLayerAndMaskInformation();
    void writeLayerInformationBody(PSDWriter& writer);
    // Encodes every layer's channels in parallel (`prepareChannelDataForExport`); returns each
    // layer's failure, null where it succeeded.
    [[nodiscard]] std::vector<std::exception_ptr> prepareLayerChannels();
    void writeImageData();

    PSDWrapper& document_;
    const image::PixelBufferType* composite_;
    PSDWriter writer_;
};

/// Appends the image resource blocks of `document` (generated ones, then the kept ones) to
/// `writer`; `hasComposite` is recorded in the version information. Updates `targetLayerIndex`
/// from the layers' `targeted` flags.
void writeImageResourceBlocks(PSDWriter& writer, PSDWrapper& document, bool hasComposite);

} // namespace psdkit
