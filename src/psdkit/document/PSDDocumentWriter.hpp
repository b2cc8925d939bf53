#pragma once
// The document writer: the bytes of a complete file, from front to back on one PSDWriter —
// header, colour mode data, image resources, layer and mask information, image data.
#include <cstdint>
#include <vector>

#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit {

class PSDDocumentWriter {
public:
    PSDDocumentWriter(PSDWrapper& document, const image::PixelBufferType* composite, PSDOutputSink& sink)
        : document_(document), composite_(composite), writer_(sink)
    {
    }
    /// Writes the whole file to the sink; throws on the first failure.
    void write();

private:
    void writeHeader();
    void writeColorModeData();
    void repairLayerIDs();
    void writeImageResources();
    void writeLayerAndMaskInformation();
    void writeLayerInformationBody(PSDWriter& writer);
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
