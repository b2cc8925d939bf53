#pragma once
// ImageMetadata: the descriptive metadata of a document (title, author, keywords, capture
// data, …) held as an XMP tree. It is read from a file's image resources (the XMP packet, with
// EXIF and IPTC data converted into XMP properties) and written back as one XMP packet.
//
// A value type with deep copies: copying and then changing the copy (for example with
// `prepareForExport`) never changes the original. Safe to use from several threads on
// different values; one value is used by one thread at a time.
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace psdkit {

class ImageMetadata {
public:
    /// Metadata without any property.
    ImageMetadata();
    ImageMetadata(const ImageMetadata& other);
    ImageMetadata(ImageMetadata&& other) noexcept;
    ImageMetadata& operator=(const ImageMetadata& other);
    ImageMetadata& operator=(ImageMetadata&& other) noexcept;
    ~ImageMetadata();

    /// The metadata of a whole PSD or PSB file: the image resources XMP (1060), EXIF (1058) and
    /// IPTC-NAA (1028) are located on a cursor of its own and combined into one XMP tree; where
    /// the XMP packet and EXIF or IPTC name the same property, the XMP packet wins. Never throws
    /// (except `std::bad_alloc`): a file that is not PSD or PSB, is truncated, or holds
    /// malformed metadata yields the metadata that could be read, possibly none. The input is
    /// only read during the call.
    [[nodiscard]] static ImageMetadata fromFile(std::span<const std::uint8_t> wholeFile);

    /// Prepares the metadata for being written with a document: sets tiff:XResolution and
    /// tiff:YResolution to `resolution` (a rational with denominator 10000, e.g. "720000/10000"),
    /// tiff:ResolutionUnit to 2 (inches), and dc:format to the media type of `fileType`
    /// ("image/vnd.adobe.photoshop" for "com.adobe.photoshop-image"; other type identifiers
    /// are stored as given). Nothing time-dependent is written, so the same metadata prepared
    /// the same way always serializes to the same bytes. Throws
    /// `PlatformException(metadataPrepare)` when `resolution` is not a positive finite number
    /// or a property cannot be set; the metadata is then unchanged.
    void prepareForExport(double resolution, std::string_view fileType);

    /// The metadata as a serialized XMP packet (UTF-8): wrapped in an `<?xpacket?>` header and
    /// trailer and followed by no padding, written read-only ("end='r'") since the packet is
    /// rewritten whole on every save. Absent when the metadata is empty (there is nothing to
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
    std::unique_ptr<Tree> tree_; // never null
};

} // namespace psdkit
