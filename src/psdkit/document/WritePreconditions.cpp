// What the document writer checks before it writes the first byte: every document whose output the
// reader would refuse, or would read back as something else, is refused with writeParameterError and
// a detail that names the layer or the field.
#include <cmath>
#include <string>

#include "psdkit/document/PSDDocumentWriter.hpp"
#include "psdkit/layers/DepthFormats.hpp"
#include "psdkit/layers/TaggedBlockKeys.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit::detail {
namespace {

[[noreturn]] void refuse(const std::string& detail)
{
    throw PSDException(PSDError::writeParameterError, detail);
}

bool isFraction(double value)
{
    return value >= 0.0 && value <= 1.0;
}

bool isInverted(const PSDMacRect& rect)
{
    return rect.width() < 0 || rect.height() < 0;
}

// An image that a record of bounds `rect` can carry: present exactly when the bounds are not empty,
// of the expected pixel type and of the bounds' size.
void checkImageForBounds(const image::PixelBufferType* image, const PSDMacRect& rect,
                         std::optional<image::PixelFormat> format, const std::string& what,
                         const std::string& layer)
{
    if (isInverted(rect)) {
        refuse(layer + ": " + what + " bounds are inverted");
    }
    if (image == nullptr) {
        if (!rect.isEmpty()) {
            refuse(layer + ": " + what + " bounds are not empty but there is no " + what + " image");
        }
        return;
    }
    if (!format || image->format() != *format) {
        refuse(layer + ": the " + what + " image has another pixel type than the layer's bit depth");
    }
    if (image->size() != rect.size()) {
        refuse(layer + ": the " + what + " image's size differs from its bounds");
    }
}

// A kept block whose length width does not follow its signature reads back only where the reader
// tolerates it: document-level "8BIM" blocks under the keys written "8B64" in big files (outside
// big files they are written with 4-byte lengths).
bool keptBlockFramingReads(const PSDRawBlock& block, bool documentLevel)
{
    const bool longSignature = block.signature == PSDFourCharCode("8B64");
    if (!longSignature && block.signature != PSDFourCharCode("8BIM")) {
        return false;
    }
    if (block.longLength == longSignature) {
        return true;
    }
    return documentLevel && !longSignature && detail::usesLongLengthInBigFiles(block.key);
}

void checkLayer(const PSDLayerWrapper& layer, std::size_t index, std::int64_t documentDepth)
{
    const std::string name = "layer " + std::to_string(index) + " \"" + layer.name + "\"";
    if (layer.bitDepth != documentDepth) {
        refuse(name + ": its bit depth differs from the document's");
    }
    if (!isFraction(layer.opacity) || !isFraction(layer.fillOpacity)) {
        refuse(name + ": opacity and fill opacity must lie in 0 to 1");
    }
    const auto content = layer.contentImage();
    checkImageForBounds(content.get(), layer.contentsRect, image::colorPixelFormatForDepth(layer.bitDepth),
                        "content", name);
    if (layer.hasLayerMask) {
        const auto mask = layer.maskImage();
        checkImageForBounds(mask.get(), layer.maskRect, image::grayPixelFormatForDepth(layer.bitDepth),
                            "mask", name);
        if (layer.hasRealFlags && isInverted(layer.realMaskRect)) {
            refuse(name + ": real mask bounds are inverted");
        }
        if (!isFraction(layer.maskDefaultColor) ||
            (layer.hasRealFlags && !isFraction(layer.realMaskDefaultColor)) ||
            (layer.maskHasUserMaskDensity && !isFraction(layer.userMaskDensity)) ||
            (layer.maskHasVectorMaskDensity && !isFraction(layer.vectorMaskDensity))) {
            refuse(name + ": mask colours and densities must lie in 0 to 1");
        }
    }
    for (const auto& block : layer.uninterpretedBlocks) {
        if (!keptBlockFramingReads(block, false)) {
            refuse(name + ": kept block " + block.key.debugDescription() +
                   " has a signature or length width that does not read back");
        }
    }
}

} // namespace

void PSDDocumentWriter::checkWritable() const
{
    const auto& doc = document_;
    if (!sampleTypeForDepth(doc.bitDepth)) {
        refuse("bit depth " + std::to_string(doc.bitDepth) + " cannot be written");
    }
    if (doc.layers.size() > 32767) {
        refuse("more layers than a layer count holds");
    }
    for (std::size_t i = 0; i < doc.layers.size(); ++i) {
        if (!doc.layers[i]) {
            refuse("layer " + std::to_string(i) + " is missing");
        }
        checkLayer(*doc.layers[i], i, doc.bitDepth);
    }
    const image::IntegralSize size{doc.imageWidth, doc.imageHeight};
    if (composite_ != nullptr && (composite_->format() != image::colorPixelFormatForDepth(doc.bitDepth) ||
                                  composite_->size() != size)) {
        refuse("the composite image does not match the document's size and bit depth");
    }
    if (doc.alphaChannels) {
        for (std::size_t i = 0; i < doc.alphaChannels->size(); ++i) {
            const auto& alpha = (*doc.alphaChannels)[i];
            if (!alpha || !alpha->image || alpha->image->size() != size ||
                alpha->image->format() != image::grayPixelFormatForDepth(doc.bitDepth)) {
                refuse("alpha channel " + std::to_string(i) +
                       " needs an image of the document's size and bit depth");
            }
        }
    }
    for (const auto& block : doc.uninterpretedBlocks) {
        if (!keptBlockFramingReads(block, true)) {
            refuse("document-level kept block " + block.key.debugDescription() +
                   " has a signature or length width that does not read back");
        }
    }
    if (!doc.propertiesDictionary.empty() && !HostApplication::current().bundleIdentifier) {
        refuse("the document's properties need a host bundle identifier to be stored under");
    }
}

} // namespace psdkit::detail
