#pragma once
// The document writer: the bytes of a complete file, from front to back on one PSDWriter —
// header, colour mode data, image resources, layer and mask information, image data.
#include <cstdint>
#include <exception>
#include <vector>

#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/support/ParallelWork.hpp"

namespace psdkit::detail {

class PSDDocumentWriter {
  public:
    PSDDocumentWriter(PSDWrapper& document, const image::PixelBufferType* composite, PSDOutputSink& sink,
                      const PSDWriteOptions& options)
        : document_(document), composite_(composite), writer_(sink),
          threadCount_(detail::effectiveThreadCount(options.threadCount))
    {
    }
    /// Writes the whole file to the sink; throws on the first failure.
    void write();

  private:
    // Refuses (writeParameterError, naming the layer or field) every document whose output the
    // reader would refuse or read back differently; runs before the first byte is written.
    void checkWritable() const;
    // Whether the composite is written with its transparency as a fourth channel: always with
    // layers; without layers only when the composite is not fully opaque (see writeHeader).
    [[nodiscard]] bool writesCompositeTransparency() const;
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
    // Blocks kept from reading (`uninterpretedBlocks`), after the generated ones, in their order.
    // A kept copy of a block the writer generates is left out: the layer blocks always, "plst"
    // when the host's properties are written, keys the host put in `additionalLayerAndMaskInfo`.
    // Kept pattern blocks stand for `patternData` while it still holds the last one's bytes; they
    // are then written under their own keys and no "Patt" is generated. Once the host changes or
    // removes `patternData`, they are left out.
    void writeKeptDocumentBlocks(PSDWriter& writer) const;
    [[nodiscard]] bool keptPatternBlocksHoldPatternData() const;

    PSDWrapper& document_;
    const image::PixelBufferType* composite_;
    PSDWriter writer_;
    unsigned threadCount_;
    bool compositeTransparency_ = true;
};

/// Appends the image resource blocks of `document` (generated ones, then the kept ones) to
/// `writer`; `hasComposite` is recorded in the version information. `compositeTransparency` says
/// whether the composite's transparency is written as channel 3: the channel names then start with
/// the placeholder "Transparency" for it. Updates `targetLayerIndex` from the layers' `targeted`
/// flags.
void writeImageResourceBlocks(PSDWriter& writer, PSDWrapper& document, bool hasComposite,
                              bool compositeTransparency = true);

} // namespace psdkit::detail
