// Document target: reads the input as a PSD or PSB file, decodes its composite and touches every
// image the read built (layer contents, masks, alpha channels). A document that was read must
// write back, and the written bytes must read again into a document of the same shape.
#include <cstring>
#include <memory>
#include <optional>

#include "psdkit/document/PSDWrapper.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {
namespace {

// Reads every byte of an image, so that the sanitizer sees a buffer smaller than it claims.
std::uint32_t checksum(const std::shared_ptr<image::PixelBufferType>& buffer)
{
    std::uint32_t sum = 0;
    if (buffer) {
        for (const std::uint8_t byte : buffer->bytes()) {
            sum = sum * 31 + byte;
        }
    }
    return sum;
}

std::uint32_t touchImages(const PSDWrapper& document)
{
    std::uint32_t sum = 0;
    for (const auto& layer : document.layers) {
        sum += checksum(layer->contentImage()) + checksum(layer->maskImage());
    }
    if (document.alphaChannels) {
        for (const auto& channel : *document.alphaChannels) {
            sum += checksum(channel->image);
        }
    }
    return sum;
}

// True when two images of one format and size hold the same colour samples. Transparency is
// compared only when `withTransparency`: a document without layers has no place in the file for
// the composite's transparency, which reads back as an extra alpha channel.
bool sameColor(const image::PixelBufferType& a, const image::PixelBufferType& b, bool withTransparency)
{
    if (a.format() != b.format() || a.size() != b.size()) {
        return false;
    }
    const std::size_t sampleBytes = image::bytesPerSample(image::sampleType(a.format()));
    const std::size_t pixelBytes = image::bytesPerPixel(a.format());
    const std::size_t channels = withTransparency ? image::channelCount(a.format()) : 3;
    const auto left = a.bytes();
    const auto right = b.bytes();
    for (std::size_t pixel = 0; pixel + pixelBytes <= left.size(); pixel += pixelBytes) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            const std::size_t at = pixel + image::memorySlot(a.format(), channel) * sampleBytes;
            if (std::memcmp(left.data() + at, right.data() + at, sampleBytes) != 0) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

Outcome runDocument(std::span<const std::uint8_t> input)
{
    std::optional<PSDWrapper> document;
    if (Outcome read = attempt([&] { document.emplace(input); }); read.result != "ok") {
        return read;
    }
    (void)touchImages(*document);
    const std::shared_ptr<image::PixelBufferType> composite = document->compositeImage();

    std::vector<std::uint8_t> written;
    const Outcome write =
        attempt([&] { written = document->serializedRepresentationWithCompositeImage(composite.get()); });
    // Resolutions are read signed but written unsigned (16.16 fixed point), so a negative one
    // read from a file must be refused by the writer; so must a missing composite, detected only
    // when the image data is reached.
    const bool negativeResolution = document->hRes < 0 || document->vRes < 0;
    if (negativeResolution || !composite) {
        if (write.result != "PSDError.writeParameterError") {
            return violation("a negative resolution or a missing composite did not fail to write "
                             "with writeParameterError",
                             write);
        }
        return write;
    }
    if (write.result != "ok") {
        return violation("a document that was read does not write", write);
    }

    std::optional<PSDWrapper> again;
    if (Outcome reread = attempt([&] { again.emplace(written); }); reread.result != "ok") {
        return violation("a written document does not read", reread);
    }
    (void)touchImages(*again);
    if (again->imageWidth != document->imageWidth || again->imageHeight != document->imageHeight ||
        again->bitDepth != document->bitDepth || again->bigFile != document->bigFile ||
        again->layers.size() != document->layers.size()) {
        return violation("a written document reads back with another size, depth or layer count");
    }
    const auto compositeAgain = again->compositeImage();
    if (!compositeAgain || !sameColor(*composite, *compositeAgain, !document->layers.empty())) {
        return violation("a written document reads back with another composite");
    }
    return {};
}

} // namespace psdkit::fuzz
