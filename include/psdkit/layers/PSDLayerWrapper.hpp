#pragma once
// PSDLayerWrapper: one layer of a document, its record's values, channel data and images.
#include "psdkit/Export.hpp"
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "psdkit/core/OrderedMap.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDMacRect.hpp"
#include "psdkit/document/PSDReadOptions.hpp"
#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/layers/PSDRawBlock.hpp"
#include "psdkit/platform/PropertyValue.hpp"
#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit {

class PSDScanner;
class PSDWriter;

/// Raw additional layer information blocks kept for writing back, in the order they were read.
using PSDTaggedData = OrderedMap<PSDFourCharCode, std::vector<std::uint8_t>>;

/// One layer of a document — the values of its layer record (bounds, blend mode, opacity, flags,
/// mask parameters, name, identity, kind), its channel data, and the two images a host works with:
/// the colour content and the user mask.
///
/// Layers are reference objects, held by std::shared_ptr in the document's `layers`. A host that
/// reads `contentImage` or `maskImage` shares the buffer the layer keeps; a host that assigns them
/// hands the buffer to the layer (and may keep sharing it). Fractions (opacities, densities,
/// default colours) are 0.0 to 1.0 and stored as bytes (value × 255, cut toward zero); writing
/// refuses values outside that range with `writeParameterError`.
class PSDKIT_EXPORT PSDLayerWrapper {
  public:
    /// A layer with every field at its default. `bitDepth` (8, 16 or 32) selects the sample type of
    /// its channel data; other depths are accepted here and refused when the layer is read
    /// (`readParameterError`) or written (`writeParameterError`).
    explicit PSDLayerWrapper(std::int64_t depth = 8) : bitDepth(depth) {}

    /// Bits per channel sample of the owning document. Library-internal.
    std::int64_t bitDepth = 8;
    /// The layer's name (UTF-8).
    std::string name;
    /// The layer's identifier within the document; 0 and duplicates are renumbered on writing.
    std::int64_t layerID = 0;
    /// Index of the colour label editing applications show (signed 16-bit in the file).
    std::int64_t colorLabel = 0;

    /// The layer's kind. Setting a kind other than `regular` or `sceneGroup` also sets
    /// `pixelDataIrrelevantToAppearanceOfDocument` (it is never cleared by this).
    [[nodiscard]] const PSDLayerType& type() const noexcept { return type_; }
    /// Sets the layer's kind, with the effect described at `type()`.
    void setType(PSDLayerType type);

    /// Refinement of a group: `sceneGroup` or `regular`.
    PSDLayerType subtype = PSDLayerType::regular();
    /// In the document's selection: set on reading for the layers the document lists as selected;
    /// writing stores the selection from it.
    bool selected = false;
    /// The document's target layer; set by the host (reading never sets it), used on writing.
    bool targeted = false;
    /// For a group: shown open.
    bool expanded = true;
    /// Bounds of the layer's pixels in document coordinates; `contentImage` has its size.
    PSDMacRect contentsRect;

    /// One entry per channel record, in record order (sorted by channel ID once the content image
    /// is built). Library-internal.
    std::vector<image::AnyChannelData> channelInfo;
    /// The compressed channels to be written, by channel ID; filled only while the layer is being
    /// written. Library-internal.
    std::map<std::int64_t, image::AnyChannelData> channelDataPreparedForExport;

    /// Blend-mode key of the record ("norm", "mul ", "pass" for a group that passes through, …).
    PSDFourCharCode blendMode{"norm"};
    /// Opacity of the whole layer, 0.0 to 1.0.
    double opacity = 1.0;
    /// Opacity of the layer's fill (its pixels, not its effects), 0.0 to 1.0.
    double fillOpacity = 1.0;
    /// Clipped to the layer below.
    bool clipping = false;
    /// Lock bits as the protection settings store them (unsigned 32-bit); bit 0: transparency.
    std::int64_t lockFlags = 0;
    /// Shown.
    bool visible = true;
    /// The layer's pixels do not contribute to the document's appearance (groups, dividers,
    /// adjustment and fill layers).
    bool pixelDataIrrelevantToAppearanceOfDocument = false;

    /// The record carries layer mask data; the mask fields below are written only when set.
    bool hasLayerMask = false;
    /// Bounds of the user mask in document coordinates; `maskImage` has its size.
    PSDMacRect maskRect;
    /// Mask value outside `maskRect`, 0.0 to 1.0.
    double maskDefaultColor = 1.0;
    bool maskIsPositionedRelativeToLayer = false; ///< Position relative to the layer (flag bit 0).
    bool maskDisabled = false;                    ///< The mask is switched off (flag bit 1).
    bool maskCameFromRenderingOtherData = false;  ///< The mask was rendered from other data (flag bit 3).
    bool maskHasUserMaskDensity = false;          ///< `userMaskDensity` is stored.
    double userMaskDensity = 1.0;                 ///< User mask density, 0.0 to 1.0.
    bool maskHasUserMaskFeather = false;          ///< `userMaskFeather` is stored.
    double userMaskFeather = 0.0;                 ///< User mask feather, as stored.
    bool maskHasVectorMaskDensity = false;        ///< `vectorMaskDensity` is stored.
    double vectorMaskDensity = 1.0;               ///< Vector mask density, 0.0 to 1.0.
    bool maskHasVectorMaskFeather = false;        ///< `vectorMaskFeather` is stored.
    double vectorMaskFeather = 0.0;               ///< Vector mask feather, as stored.
    /// The record carries the second ("real") mask flags, default colour and rectangle.
    bool hasRealFlags = false;
    bool realMaskIsPositionedRelativeToLayer = false; ///< Real mask flag bit 0.
    bool realMaskDisabled = false;                    ///< Real mask flag bit 1.
    bool realMaskCameFromRenderingOtherData = false;  ///< Real mask flag bit 3.
    double realMaskDefaultColor = 1.0;                ///< Real mask value outside its bounds, 0.0 to 1.0.
    PSDMacRect realMaskRect;                          ///< Bounds of the real mask.

    /// The record's blending ranges, raw; absent when the record has none.
    std::optional<std::vector<std::uint8_t>> layerBlendingRanges;
    /// Kept raw blocks (fill and adjustment settings, effects, artboards) by key, in file order.
    PSDTaggedData taggedData;
    /// Tagged blocks the reader did not interpret, kept whole when the host reads with
    /// `PSDReadOptions::keepUnknownBlocks`, in file order; written back after the generated blocks.
    /// With that option the blocks kept in `taggedData` also leave a copy here that marks their
    /// place: the writer puts the `taggedData` entry's current bytes there (and drops the copy
    /// when the entry is gone). Kept blocks are never re-derived from other fields: a host that
    /// changes the layer (its name, pixels or type) leaves them as they were read.
    std::vector<PSDRawBlock> uninterpretedBlocks;

    /// Colour and transparency, `contentsRect` sized; null when the layer has no pixels.
    ///
    /// A layer read with `PSDImageDecoding::onDemand` decodes its image here, on the first call,
    /// from its `channelInfo`, `contentsRect` and `bitDepth` as they are then, and keeps it. That
    /// first call may throw what reading eagerly would have thrown for this layer's content:
    /// PSDException(readInvalidImageData) when the channels are not three colour channels and a
    /// transparency, PSDException(readParameterError) for an unsupported depth, or the image core's
    /// ImageException for channels that do not decode; the image then stays pending and the next
    /// call tries again. Calls from several threads at once are safe: one decodes, the others wait
    /// for it. Never throws for layers read eagerly or built by the host.
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> contentImage() const;
    /// Replaces the content image (the layer shares the buffer with the caller); a pending
    /// on-demand decoding is dropped.
    void setContentImage(std::shared_ptr<image::PixelBufferType> image);
    /// Writes the content image into memory the caller owns, with every pixel's samples in the
    /// order red, green, blue, transparency whatever the buffer's memory order: samples of the
    /// image's type (uint8, uint16 or float by `bitDepth` for an image read from a file),
    /// native-endian, row after row without padding, so `destination` holds exactly
    /// width × height × 4 samples of the size `contentImageSize()` gives.
    ///
    /// A layer read with `PSDImageDecoding::onDemand` whose image has not been asked for yet is
    /// decoded from its channels straight into `destination` (no buffer of the layer's own on the
    /// way) and stays pending: nothing is kept, and `contentImage()` decodes anew when it is
    /// called. A layer that holds its image has it copied. The rows of a large image are spread
    /// over up to `threadCount` threads; 0 means the count the layer was read with
    /// (`PSDReadOptions::threadCount`), itself 0 for one per hardware thread. The result is the
    /// same with any count.
    ///
    /// Returns false and writes nothing when the layer has no content image (none, or left
    /// undecoded by `PSDImageDecoding::never`). Throws the image core's ImageException before
    /// writing anything: rawSizeMismatch when `destination` has another size,
    /// channelCountMismatch when the host gave the layer a grey image; and what
    /// the first `contentImage()` call of a pending layer throws when its channels do not decode
    /// (`destination` may then be partly written; the layer stays pending). Safe beside calls from
    /// other threads, as `contentImage()` is.
    [[nodiscard]] bool copyContentImageRGBA(std::span<std::uint8_t> destination,
                                            unsigned threadCount = 0) const;
    /// The user mask, one channel, `maskRect` sized; null when the layer has none. Decoded on first
    /// call for layers read on demand, like `contentImage()`; that call may throw
    /// PSDException(readInvalidImageData) when the record announces a mask but has no channel -2,
    /// or what decoding the mask channel throws.
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> maskImage() const;
    /// Replaces the mask image (the layer shares the buffer with the caller); a pending on-demand
    /// decoding is dropped.
    void setMaskImage(std::shared_ptr<image::PixelBufferType> image);
    /// True while an image read on demand has not been decoded yet.
    [[nodiscard]] bool hasPendingImages() const;
    /// The size of `contentImage()` without decoding it: the image's size, or `contentsRect`'s for
    /// an image still pending or left undecoded by `PSDImageDecoding::never`; nothing when the
    /// layer has no content image. Never throws.
    [[nodiscard]] std::optional<image::IntegralSize> contentImageSize() const;
    /// The same for `maskImage()` (`maskRect`'s size while pending or undecoded).
    [[nodiscard]] std::optional<image::IntegralSize> maskImageSize() const;

    /// Host-visible extra properties. Storing a dictionary whose "PSD Blend Mode" holds a
    /// `PSDFourCharCode` also sets `blendMode` to it.
    [[nodiscard]] const PropertyDictionary& propertiesDictionary() const noexcept { return properties_; }
    /// Replaces the extra properties (with the "PSD Blend Mode" effect described above).
    void setPropertiesDictionary(PropertyDictionary properties);
    /// Stores one property (running the same observer).
    void setProperty(const std::string& key, PropertyValue value);

    /// `contentsRect` as a floating rectangle.
    [[nodiscard]] CGRect contentsCGRect() const noexcept { return contentsRect.cg(); }
    /// `maskRect` as a floating rectangle.
    [[nodiscard]] CGRect maskCGRect() const noexcept { return maskRect.cg(); }
    /// Sets `contentsRect` to the integral rectangle that contains `rect`, never inverted.
    /// Throws `PSDException(readParameterError)` for non-finite or out-of-range rectangles.
    void setContentsRect(const CGRect& rect) { contentsRect = PSDMacRect(rect); }
    /// The same for `maskRect`.
    void setMaskCGRect(const CGRect& rect) { maskRect = PSDMacRect(rect); }

    /// Key of a channel's ID in its properties.
    static constexpr const char* channelIDKey = "channelID";
    /// Key of a channel's recorded byte length (compression code included) in its properties.
    static constexpr const char* readLengthKey = "length";
    /// Channel IDs in the order they are written.
    static constexpr std::array<std::int64_t, 5> writtenChannelOrder = {0, 1, 2, -1, -2};

    // Reading and writing, used by the document.

    /// Reads one layer record at the scanner's cursor and leaves the cursor after it. With
    /// `keepUnknownBlocks`, every tagged block the reader does not interpret goes whole into
    /// `uninterpretedBlocks`; otherwise it is skipped.
    /// Throws PSDException (see docs/decisions.md for the choices on negative counts and lengths).
    void readLayerRecord(PSDScanner& scanner, bool bigFile, bool keepUnknownBlocks = false);
    /// Reads this layer's channel image data and builds `contentImage` and `maskImage`.
    /// Throws PSDException or the image core's ImageException.
    void readChannelImageData(PSDScanner& scanner, bool bigFile);
    /// Reads this layer's channel image data, checking every channel's compression code, row
    /// counts and length against the bytes, and then, by `decoding`: builds the images at once
    /// (`eager`, as above), leaves them to be built on first access (`onDemand`), or leaves them
    /// absent (`never`). Channel bytes are taken with `PSDScanner::scanSharedData` when the scanner
    /// shares its input, so they then refer to it instead of being copied. `threadCount` (0: one
    /// per hardware thread) bounds the threads that decode this layer's images later: 1 keeps
    /// every decoding of the layer on the calling thread, and it is the default count of
    /// `copyContentImageRGBA`.
    void readChannelImageData(PSDScanner& scanner, bool bigFile, PSDImageDecoding decoding,
                              unsigned threadCount = 0);
    /// Fills `channelDataPreparedForExport` from the images; with `mayUseWorkerThread` the planes
    /// of a large image are encoded on two threads (the same bytes). Throws the image core's error.
    void prepareChannelDataForExport(bool mayUseWorkerThread = true);
    /// Prepares the channels (unless `channelsPrepared`: the caller has just run
    /// `prepareChannelDataForExport`) and appends the layer record. Throws PSDException (values
    /// that do not fit their fields: writeParameterError) or the image core's error.
    void writeLayerRecord(PSDWriter& writer, bool bigFile, bool channelsPrepared = false);
    /// Appends the prepared channels' image data, then empties `channelDataPreparedForExport`.
    void writeChannelImageData(PSDWriter& writer, bool bigFile);

  private:
    void readMaskData(PSDScanner& scanner);
    void readTaggedBlock(PSDScanner& scanner, bool keepUnknownBlocks);
    void readSectionDivider(PSDScanner& scanner, std::int64_t length);
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> decodeContentImage() const;
    [[nodiscard]] std::shared_ptr<image::PixelBufferType> decodeMaskImage() const;
    void writeMaskData(PSDWriter& writer) const;
    void writeTaggedBlocks(PSDWriter& writer, bool bigFile) const;
    // The blocks kept from reading, after the generated ones; a kept copy of a generated block is
    // left out, and the last kept copy of a `taggedData` key is where that entry's bytes go.
    void writeKeptBlocks(PSDWriter& writer) const;

    PSDLayerType type_ = PSDLayerType::regular();
    PropertyDictionary properties_;
    // The images and whether each still waits for its on-demand decoding, guarded by the mutex
    // (shared by copies of the layer, which is harmless: it only serializes them).
    mutable std::shared_ptr<std::mutex> imageMutex_ = std::make_shared<std::mutex>();
    mutable std::shared_ptr<image::PixelBufferType> contentImage_;
    mutable std::shared_ptr<image::PixelBufferType> maskImage_;
    mutable bool contentPending_ = false;
    mutable bool maskPending_ = false;
    // The thread count the layer was read with, for its later decoding (0: one per hardware thread).
    unsigned decodeThreadCount_ = 0;
    // Read with `PSDImageDecoding::never` where an image would have been built.
    bool contentUndecoded_ = false;
    bool maskUndecoded_ = false;
};

} // namespace psdkit
