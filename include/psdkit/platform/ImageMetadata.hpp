#pragma once
// ImageMetadata: the descriptive metadata of a document (title, author, keywords, capture
// data, …) held as an XMP tree. It is read from a file's image resources (the XMP packet, with
// EXIF and IPTC data converted into XMP properties) and written back as one XMP packet.
//
// A value type with deep copies: copying and then changing the copy (for example with
// `prepareForExport`) never changes the original. Safe to use from several threads on
// different values; one value is used by one thread at a time.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace psdkit {

/// A document's descriptive metadata as an XMP tree. A value type with deep copies; one value is
/// used by one thread at a time.
class PSDKIT_EXPORT ImageMetadata {
  public:
    /// Metadata without any property. A moved-from value is empty as well.
    ImageMetadata();
    /// A deep copy of `other`.
    ImageMetadata(const ImageMetadata& other);
    /// Takes over the tree of `other`, which is left empty.
    ImageMetadata(ImageMetadata&& other) noexcept;
    /// Replaces this tree with a deep copy of `other`'s.
    ImageMetadata& operator=(const ImageMetadata& other);
    /// Takes over the tree of `other`, which is left empty.
    ImageMetadata& operator=(ImageMetadata&& other) noexcept;
    ~ImageMetadata();

    /// The data of a document's metadata resources, each absent when the file has none. The
    /// spans borrow the file's bytes, which must stay alive while they are used.
    struct Resources {
        std::optional<std::span<const std::uint8_t>> xmp;  ///< Resource 1060: an XMP packet.
        std::optional<std::span<const std::uint8_t>> exif; ///< Resource 1058: a TIFF structure.
        std::optional<std::span<const std::uint8_t>> iptc; ///< Resource 1028: IPTC-NAA records.
    };

    /// The metadata of the given resources combined into one XMP tree; where the XMP packet and
    /// EXIF or IPTC name the same property, the XMP packet wins. EXIF and IPTC values whose text
    /// is not valid UTF-8 are dropped (no packet could hold them). Never throws (except
    /// `std::bad_alloc`): malformed metadata yields what could be read, possibly none. The bytes
    /// are only read during the call. The document reader calls this with the resources it met.
    [[nodiscard]] static ImageMetadata fromResources(const Resources& resources);

    /// The metadata of a whole PSD or PSB file: the first XMP, EXIF and IPTC-NAA resource of its
    /// image resources section, found by the walk the document reader makes, as `fromResources`
    /// combines them. Never throws (except `std::bad_alloc`): a file that is not PSD or PSB, or
    /// whose header or resources section is cut short or malformed, yields the metadata of the
    /// resources met before the fault, possibly none. The input is only read during the call.
    [[nodiscard]] static ImageMetadata fromFile(std::span<const std::uint8_t> wholeFile);

    /// Prepares the metadata for being written with a document: sets tiff:XResolution and
    /// tiff:YResolution to `resolution` in pixels per inch (a rational with denominator 10000,
    /// rounded to the nearest numerator: 72 becomes "720000/10000"), tiff:ResolutionUnit to "2"
    /// (inches), and dc:format to the media type of `fileType` ("application/vnd.adobe.photoshop"
    /// for "com.adobe.photoshop-image", as documents of that format label themselves; any other
    /// text is stored as given). Every other property is kept. Nothing time-dependent is
    /// written, so the same metadata prepared the same way always serializes to the same bytes.
    /// Throws `PlatformException(metadataPrepare)` when `resolution` is negative, not finite or
    /// too large for a 32-bit numerator (above 429496.7295), when `fileType` is empty, or when a
    /// property cannot be set; the metadata is then unchanged.
    void prepareForExport(double resolution, std::string_view fileType);

    /// The metadata as a serialized XMP packet (UTF-8, compact RDF): wrapped in the
    /// `<?xpacket begin=…?>` header and `<?xpacket end="r"?>` trailer so that readers scanning a
    /// file for packets find it, with no padding. A writable packet would need padding for
    /// in-place edits; psdkit rewrites the packet whole on every save, so it writes none and
    /// marks the packet read-only. Absent when the metadata is empty (there is nothing to
    /// write); after `prepareForExport` it is never absent. Throws
    /// `PlatformException(metadataSerialize)` when the tree cannot be serialized.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> xmpData() const;

    /// True when the metadata holds no property.
    [[nodiscard]] bool empty() const noexcept;

    /// Every property as (key, value text), in tree order, for display: keys look like
    /// "Xmp.dc.title", values are Exiv2-style text (language alternatives as
    /// `lang="x-default" Title`).
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> properties() const;

    /// The value text of one property by key (e.g. "Xmp.tiff.XResolution"), absent when unset.
    [[nodiscard]] std::optional<std::string> property(std::string_view key) const;

  private:
    struct Tree;
    std::unique_ptr<Tree> tree_; // null: no property (also after being moved from)
};

} // namespace psdkit
