#pragma once
// PSDWrapper: one PSD or PSB document in memory, and its serialization into a file's bytes.
#include "psdkit/Export.hpp"
#include <any>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "psdkit/core/OrderedMap.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDOutputSink.hpp"
#include "psdkit/core/PSDSharedBytes.hpp"
#include "psdkit/document/PSDAlphaChannel.hpp"
#include "psdkit/document/PSDColorMode.hpp"
#include "psdkit/document/PSDImageResourceBlock.hpp"
#include "psdkit/document/PSDReadOptions.hpp"
#include "psdkit/document/PSDWriteOptions.hpp"
#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/platform/ColorSpace.hpp"
#include "psdkit/platform/ImageMetadata.hpp"
#include "psdkit/platform/PropertyValue.hpp"
#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit {

class PSDScanner;
class PSDWriter;
namespace detail {
class PSDDocumentReader;
class PSDDocumentWriter;
} // namespace detail

/// One PSD or PSB document in memory — read from a file's bytes, or built by the host — and its
/// serialization back into the bytes of a complete file. The library never touches the disk.
///
/// Ownership: the host owns documents. A document owns its layers, alpha channels, resources and
/// raw blocks; layers and alpha channels are shared with the host through std::shared_ptr.
/// A document is used by one thread at a time, except that the images of layers read on demand may
/// be asked for from several threads at once. Fields marked library-internal are kept so that a
/// document read and written again loses nothing; hosts leave them alone.
class PSDKIT_EXPORT PSDWrapper {
  public:
    /// A document with every field at its default: 8-bit RGB, 72 ppi, no layers.
    PSDWrapper();

    /// Reads a complete PSD or PSB file. The bytes are borrowed for the duration of the call only;
    /// the document keeps its own copies of what it needs (compressed planes stay compressed).
    /// Throws PSDException for malformed or unsupported files (`readUnsupportedColorMode` for every
    /// mode but RGB; `readCorruptFile` for bit depths other than 8, 16, 32), the image core's
    /// ImageException when an alpha channel cannot be decoded, or the platform's
    /// PlatformException when the stored host property list cannot be parsed. No partial document
    /// is ever returned.
    explicit PSDWrapper(std::span<const std::uint8_t> data);
    /// Reads a complete PSD or PSB file as `options` say. Throws as the constructor above; with
    /// `PSDImageDecoding::onDemand` the errors of decoding a layer's images are thrown later, by
    /// the first `PSDLayerWrapper::contentImage()` or `maskImage()` call of that layer (and by
    /// writing, which reads them), and with `never` they are not met at all. Every channel's
    /// compression code, row counts and length are still checked against the file here.
    PSDWrapper(std::span<const std::uint8_t> data, const PSDReadOptions& options);
    /// Reads a complete file from bytes the document may share instead of copy: the layers'
    /// compressed planes (`channelInfo`) then refer to `data`'s storage, which `data` keeps alive
    /// (through its owner) as long as any of them does. The bytes must not change meanwhile.
    /// Otherwise as the constructor above.
    PSDWrapper(const PSDSharedBytes& data, const PSDReadOptions& options = {});

    PSDWrapper(const PSDWrapper&) = delete;
    PSDWrapper& operator=(const PSDWrapper&) = delete;
    /// Takes over every field of `other` (layers stay shared with whoever else holds them).
    PSDWrapper(PSDWrapper&&) noexcept = default;
    /// Takes over every field of the right-hand side.
    PSDWrapper& operator=(PSDWrapper&&) noexcept = default;

    /// A flag kept for the host; neither reading nor writing changes it.
    bool didReadDataSuccessfully = false;
    /// True for the big-document variant (PSB, header version 2).
    bool bigFile = false;
    /// Channel count of the composite image, from the header.
    std::int64_t numberOfChannels = 0;
    /// Canvas width in pixels.
    std::int64_t imageWidth = 0;
    /// Canvas height in pixels.
    std::int64_t imageHeight = 0;
    /// Bits per sample: 8, 16 or 32.
    std::int64_t bitDepth = 8;
    /// Horizontal resolution, in the unit `hResUnit`.
    double hRes = 72.0;
    /// Unit of `hRes`: 1 pixels per inch, 2 pixels per centimetre.
    std::int64_t hResUnit = 1;
    /// Display unit of the width, as stored in the resolution resource.
    std::int64_t widthUnit = 3;
    /// Vertical resolution, in the unit `vResUnit`.
    double vRes = 72.0;
    /// Unit of `vRes`: 1 pixels per inch, 2 pixels per centimetre.
    std::int64_t vResUnit = 1;
    /// Display unit of the height, as stored in the resolution resource.
    std::int64_t heightUnit = 3;
    /// Colour mode from the header; always `rgb` in a document that was read.
    PSDColorMode colorMode = PSDColorMode::rgb;
    /// The raw colour mode data section; absent when the file has none. Library-internal.
    std::optional<std::vector<std::uint8_t>> colorModeData;
    /// The document's colour space: device RGB, or the embedded ICC profile's.
    ColorSpace colorSpace = ColorSpace::deviceRGB();
    /// Image metadata (XMP, with EXIF and IPTC converted), when known.
    std::optional<ImageMetadata> metadata;
    /// Seed of new layer IDs. Library-internal.
    std::int64_t minimumNewLayerID = 0;
    /// Index of the target layer. Library-internal.
    std::int64_t targetLayerIndex = 0;
    /// IDs of the selected layers. Library-internal.
    std::vector<std::int64_t> selectedLayerIDs;
    /// Image resources kept raw, in file order. Library-internal.
    std::vector<PSDImageResourceBlock> imageResources;
    /// The layers in file order (bottom first). Groups are flat: a group record opens a group and a
    /// `sectionDivider` record closes it.
    std::vector<std::shared_ptr<PSDLayerWrapper>> layers;
    /// The raw global layer mask information. Library-internal.
    std::optional<std::vector<std::uint8_t>> globalLayerMaskData;
    /// Document-level tagged blocks the host wants written back (reading leaves it empty), in
    /// insertion order. Library-internal.
    OrderedMap<PSDFourCharCode, std::vector<std::uint8_t>> additionalLayerAndMaskInfo;
    /// Document-level tagged blocks the reader did not interpret, kept whole when the host reads
    /// with `PSDReadOptions::keepUnknownBlocks`, in file order; written back after the generated
    /// blocks, each under its own key and length width.
    std::vector<PSDRawBlock> uninterpretedBlocks;
    /// Raw contents of the last pattern block ("Patt", "Pat2" or "Pat3"); written back as "Patt".
    std::optional<std::vector<std::uint8_t>> patternData;
    /// Whether layer effects are shown.
    bool enableLayerEffects = true;
    /// Angle of the global light that layer effects share, in degrees.
    std::int64_t globalLightAngle = 30;
    /// Altitude of the global light, in degrees.
    std::int64_t globalLightAltitude = 30;
    /// Host-private document properties, stored in the file under the host's bundle identifier.
    PropertyDictionary propertiesDictionary;
    /// The composite image's channels as read, still compressed. Library-internal.
    std::vector<image::AnyChannelData> imageDataChannelData;
    /// Extra channels beyond colour and transparency; absent (not empty) when there are none.
    std::optional<std::vector<std::shared_ptr<PSDAlphaChannel>>> alphaChannels;
    /// True when the file's layer count was negative: the composite's fourth channel is its
    /// merged transparency. Library-internal.
    bool compositeImageHasAlphaChannel = false;
    /// Alpha channel names from the Pascal-string resource. Library-internal.
    std::optional<std::vector<std::string>> alphaChannelsPascalNames;
    /// Alpha channel names from the Unicode resource. Library-internal.
    std::optional<std::vector<std::string>> alphaChannelsUnicodeNames;

    /// Appends `layer` to `layers`.
    void addLayerWrapper(std::shared_ptr<PSDLayerWrapper> layer);
    /// Appends a new group-closing layer (type `sectionDivider`) of the document's bit depth.
    void addSectionDivider();
    /// Appends `channel` to `alphaChannels`, creating the list when absent.
    void addAlphaChannel(std::shared_ptr<PSDAlphaChannel> channel);

    /// A copy of the document's raw sections (kept resources, colour mode data, document blocks,
    /// global layer mask), as an opaque value that can be assigned back.
    [[nodiscard]] std::any auxiliaryFileData() const;
    /// Takes back a value from `auxiliaryFileData()`: resources, colour mode data and blocks only
    /// where present in it, the global layer mask always (absent clears it). Values of any other
    /// type are ignored.
    void setAuxiliaryFileData(const std::any& value);

    /// The merged RGBA image (ARGB8, RGBA16 or RGBA32 by depth) decoded from the composite's
    /// channels, or nothing when there are too few channels or they cannot be decoded. A new
    /// buffer on every call. Never throws (except std::bad_alloc).
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> compositeImage() const;
    /// `compositeImage()`, or, when there is none, a new transparent buffer of the canvas size in
    /// the colour pixel type of `bitDepth` (ARGB8 for a depth other than 8, 16 or 32, which cannot
    /// be written anyway): what to save as the merged image when nothing better is at hand. Throws
    /// `image::ImageException` (`invalidSize`, `imageTooLarge`) when the canvas cannot be a buffer.
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> compositeImageOrBlank() const;

    /// The bytes of a complete PSD (or PSB, when `bigFile`) file of this document with `composite`
    /// as its merged image (four channels, the document's size). An empty composite (zero width or
    /// height) is written uncompressed, so that no row byte counts are written for empty rows.
    /// Changes that remain, also after a failure: layer IDs repaired (0 and duplicates renumbered),
    /// `minimumNewLayerID`, `selectedLayerIDs`, `targetLayerIndex`, and the "PSD Blend Mode"
    /// property of 32-bit layers whose blend mode has to be written as "norm".
    /// Throws PSDException: writeParameterError when `composite` is null (detected only when the
    /// image data is reached) or a value does not fit its field, writeUnknownError for text that
    /// cannot be encoded, writeUnableToCreateMetaData when no XMP packet can be made; the image
    /// core's ImageException and the platform's PlatformException unchanged. No bytes on failure.
    /// The same bytes as `serializeWithCompositeImage` gives; the vector is allocated once, at its
    /// exact size, when the whole file has been written. `options` say how many threads encode;
    /// the bytes are the same whatever they say.
    [[nodiscard]] std::vector<std::uint8_t>
    serializedRepresentationWithCompositeImage(const image::PixelBufferType* composite,
                                               const PSDWriteOptions& options = {});

    /// Writes the same file as `serializedRepresentationWithCompositeImage`, byte for byte, to
    /// `sink` as it goes, without holding the whole file in memory: the bytes of each section are
    /// handed on as they are made, and section lengths are patched in once known (so the sink
    /// must be able to go back, see `PSDOutputSink::patch`). Throws what that call throws, and
    /// passes on unchanged whatever the sink throws (the ready-made sinks: std::system_error);
    /// after a failure the sink holds an incomplete file, which the host discards. The document
    /// changes as that call describes. The sink is only used during the call, and only from the
    /// calling thread (encoding threads never touch it).
    void serializeWithCompositeImage(const image::PixelBufferType* composite, PSDOutputSink& sink,
                                     const PSDWriteOptions& options = {});

  private:
    friend class detail::PSDDocumentReader;
    friend class detail::PSDDocumentWriter;
};

} // namespace psdkit
