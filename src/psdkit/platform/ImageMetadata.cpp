// All use of Exiv2 in psdkit is in this file. Exiv2 keeps process-wide state (the XMP toolkit,
// its namespace registry, its log level) that is not safe to touch from several threads, so
// every call into it runs under one mutex.
//
// The namespace registry is also history: decoding a packet binds the prefixes that packet uses
// (xap or xmp for the same namespace, or any prefix to any URI), and later decodes and encodes
// follow the latest binding. So that a tree's keys depend on its packet alone and its packet on
// the tree alone, the registry is put back to its initial state before every decode, and before
// every use of a tree the bindings that tree was read with are registered again.
#include "psdkit/platform/ImageMetadata.hpp"

#include "psdkit/core/ImageResourceBlocks.hpp"
#include "psdkit/core/ImageResourceID.hpp"

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <new>

#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit {

struct ImageMetadata::Tree {
    Exiv2::XmpData xmp;
    // The namespace URI of every prefix the tree's keys use, as bound when it was read.
    std::map<std::string, std::string> namespaces;
};

namespace {

// ---- Exiv2 -----------------------------------------------------------------------------------

std::mutex& exiv2Mutex()
{
    static std::mutex mutex;
    return mutex;
}

// Takes the Exiv2 lock, setting Exiv2 up on first use: the XMP toolkit is initialised once and
// Exiv2's own log output (warnings about malformed metadata, written to standard error by
// default) is muted, since malformed metadata is an expected input that psdkit ignores.
std::unique_lock<std::mutex> lockExiv2()
{
    std::unique_lock lock(exiv2Mutex());
    static const bool initialised = [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        return Exiv2::XmpParser::initialize();
    }();
    (void)initialised;
    return lock;
}

// Puts the namespace registry back to the state of a newly started process: the toolkit's
// built-in prefixes, nothing that an earlier packet bound. Call with the Exiv2 lock held. Should
// the toolkit fail to start again, the Exiv2 calls that follow fail and report it their own way.
void resetNamespaceRegistry()
{
    Exiv2::XmpParser::terminate();
    (void)Exiv2::XmpParser::initialize();
}

using NamespaceBindings = std::map<std::string, std::string>;

// The URI bound to each prefix the tree's keys use, as the registry holds them now; call right
// after decoding. A prefix without a binding is left out (the encoder refuses such a key anyway).
NamespaceBindings namespacesOf(const Exiv2::XmpData& xmp)
{
    NamespaceBindings bindings;
    for (const Exiv2::Xmpdatum& datum : xmp) {
        const std::string prefix = datum.groupName();
        if (bindings.count(prefix) == 0) {
            try {
                bindings.emplace(prefix, Exiv2::XmpProperties::ns(prefix));
            } catch (const Exiv2::AnyError&) { // NOLINT(bugprone-empty-catch): no binding to record
            }
        }
    }
    return bindings;
}

// The registry as a fresh process has it plus `bindings`: the state in which a tree read with
// those bindings is looked up and encoded. Only bindings that differ from the built-in ones are
// registered, so that a built-in namespace keeps its URI exactly.
void useNamespaces(const NamespaceBindings& bindings)
{
    resetNamespaceRegistry();
    for (const auto& [prefix, uri] : bindings) {
        std::string current;
        try {
            current = Exiv2::XmpProperties::ns(prefix);
        } catch (const Exiv2::AnyError&) { // NOLINT(bugprone-empty-catch): not built in
        }
        if (current != uri) {
            Exiv2::XmpProperties::registerNs(uri, prefix);
        }
    }
}

// The XMP packet of the resource: some writers leave NUL bytes after the packet's end.
std::string packetText(std::span<const std::uint8_t> bytes)
{
    std::size_t length = bytes.size();
    while (length > 0 && bytes[length - 1] == 0) {
        --length;
    }
    return {reinterpret_cast<const char*>(bytes.data()), length};
}

// EXIF data in this resource is a bare TIFF structure; a few writers put the "Exif\0\0" marker
// of JPEG files in front of it.
std::span<const std::uint8_t> tiffStructure(std::span<const std::uint8_t> exif)
{
    constexpr std::string_view kJpegExifMarker{"Exif\0\0", 6};
    if (exif.size() >= kJpegExifMarker.size() &&
        std::memcmp(exif.data(), kJpegExifMarker.data(), kJpegExifMarker.size()) == 0) {
        return exif.subspan(kJpegExifMarker.size());
    }
    return exif;
}

// Runs one decoding step; any failure of Exiv2 on malformed input leaves `target` as the step
// left it and is otherwise ignored. Running out of memory is not ignored.
template <class Step> void ignoringMalformedInput(Step step)
{
    try {
        step();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) { // NOLINT(bugprone-empty-catch): malformed metadata is dropped by design
    }
}

// The combined XMP tree; call with the Exiv2 lock held.
Exiv2::XmpData decodeMetadata(const ImageMetadata::Resources& resources)
{
    Exiv2::XmpData result;
    if (resources.xmp) {
        ignoringMalformedInput([&] {
            if (Exiv2::XmpParser::decode(result, packetText(*resources.xmp)) != 0) {
                result.clear();
            }
        });
    }
    Exiv2::XmpData converted;
    if (resources.exif) {
        ignoringMalformedInput([&] {
            const auto tiff = tiffStructure(*resources.exif);
            Exiv2::ExifData exif;
            Exiv2::ExifParser::decode(exif, tiff.data(), static_cast<std::uint32_t>(tiff.size()));
            Exiv2::copyExifToXmp(exif, converted);
        });
    }
    if (resources.iptc) {
        ignoringMalformedInput([&] {
            Exiv2::IptcData iptc;
            if (Exiv2::IptcParser::decode(iptc, resources.iptc->data(),
                                          static_cast<std::uint32_t>(resources.iptc->size())) == 0) {
                Exiv2::copyIptcToXmp(iptc, converted);
            }
        });
    }
    // The XMP packet is the newest statement of each property: converted EXIF and IPTC values
    // only fill in what it does not say. EXIF and IPTC text is copied as stored; a value that is
    // not valid UTF-8 could never be written into a packet again, so it is dropped.
    for (const Exiv2::Xmpdatum& datum : converted) {
        ignoringMalformedInput([&] {
            if (result.findKey(Exiv2::XmpKey(datum.key())) == result.end() &&
                detail::utf8ToUtf16be(datum.toString()).has_value()) {
                result.add(datum);
            }
        });
    }
    return result;
}

constexpr std::string_view kDocumentTypeIdentifier = "com.adobe.photoshop-image";
constexpr std::string_view kDocumentMediaType = "application/vnd.adobe.photoshop";
constexpr std::int64_t kResolutionDenominator = 10000;

} // namespace

ImageMetadata::ImageMetadata() = default;

ImageMetadata::ImageMetadata(const ImageMetadata& other)
{
    if (other.tree_ != nullptr) {
        auto lock = lockExiv2();
        tree_ = std::make_unique<Tree>(*other.tree_);
    }
}

ImageMetadata::ImageMetadata(ImageMetadata&& other) noexcept = default;

ImageMetadata& ImageMetadata::operator=(const ImageMetadata& other)
{
    if (this != &other) {
        ImageMetadata copy(other);
        std::swap(tree_, copy.tree_);
    }
    return *this;
}

ImageMetadata& ImageMetadata::operator=(ImageMetadata&& other) noexcept = default;

ImageMetadata::~ImageMetadata()
{
    if (tree_ != nullptr) {
        std::lock_guard lock(exiv2Mutex());
        tree_.reset();
    }
}

ImageMetadata ImageMetadata::fromFile(std::span<const std::uint8_t> wholeFile)
{
    Resources resources;
    try {
        PSDScanner scanner(wholeFile);
        constexpr std::int64_t headerBytesAfterVersion = 20;
        if (scanner.scanFourCharCode() != PSDFourCharCode("8BPS")) {
            return {};
        }
        if (const std::int64_t version = scanner.scanInt16(); version != 1 && version != 2) {
            return {};
        }
        scanner.skip(headerBytesAfterVersion);
        scanner.skip(scanner.scanUInt32()); // the colour mode data, its length taken as unsigned
        detail::readImageResourceBlocks(scanner, [&](const detail::ImageResourceBlockHeader& block) {
            const auto data = scanner.scanBytes(block.dataSize);
            auto* slot = block.id == detail::ImageResourceID::xmp       ? &resources.xmp
                         : block.id == detail::ImageResourceID::exif    ? &resources.exif
                         : block.id == detail::ImageResourceID::iptcNaa ? &resources.iptc
                                                                        : nullptr;
            if (slot != nullptr && !*slot) {
                *slot = data;
            }
        });
    } catch (const PSDException&) { // NOLINT(bugprone-empty-catch): keep what was found before the fault
    }
    return fromResources(resources);
}

ImageMetadata ImageMetadata::fromResources(const Resources& resources)
{
    ImageMetadata metadata;
    if (!resources.xmp && !resources.exif && !resources.iptc) {
        return metadata;
    }
    auto lock = lockExiv2();
    resetNamespaceRegistry();
    auto tree = std::make_unique<Tree>();
    tree->xmp = decodeMetadata(resources);
    tree->namespaces = namespacesOf(tree->xmp);
    if (!tree->xmp.empty()) {
        metadata.tree_ = std::move(tree);
    }
    return metadata;
}

void ImageMetadata::prepareForExport(double resolution, std::string_view fileType)
{
    const double scaled = resolution * static_cast<double>(kResolutionDenominator);
    if (!std::isfinite(resolution) || resolution < 0 ||
        scaled > static_cast<double>(std::numeric_limits<std::uint32_t>::max())) {
        throw PlatformException(PlatformErrorCode::metadataPrepare, "resolution out of range");
    }
    if (fileType.empty()) {
        throw PlatformException(PlatformErrorCode::metadataPrepare, "no file type");
    }
    const std::string rational =
        std::to_string(std::llround(scaled)) + "/" + std::to_string(kResolutionDenominator);
    const std::string format(fileType == kDocumentTypeIdentifier ? kDocumentMediaType : fileType);

    auto lock = lockExiv2();
    // Work on a copy so that a failure leaves the metadata as it was.
    auto updated = std::make_unique<Tree>(tree_ ? *tree_ : Tree{});
    try {
        useNamespaces(updated->namespaces);
        updated->xmp["Xmp.tiff.XResolution"] = rational;
        updated->xmp["Xmp.tiff.YResolution"] = rational;
        updated->xmp["Xmp.tiff.ResolutionUnit"] = std::string("2");
        updated->xmp["Xmp.dc.format"] = format;
        updated->namespaces = namespacesOf(updated->xmp);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw PlatformException(PlatformErrorCode::metadataPrepare, error.what());
    }
    std::swap(tree_, updated);
}

namespace {

// The packet's layout flags: the packet is rewritten whole whenever a document is saved, so it
// carries no padding for in-place editing and is marked read-only accordingly; the compact form
// keeps it small.
constexpr auto kPacketFlags =
    static_cast<std::uint16_t>(Exiv2::XmpParser::useCompactFormat | Exiv2::XmpParser::readOnlyPacket);

// One encoding of `xmp` in the registry state its `namespaces` ask for; call with the Exiv2 lock
// held. Throws PlatformException (metadataSerialize) when the toolkit refuses the tree.
std::string encodePacket(const Exiv2::XmpData& xmp, const NamespaceBindings& namespaces)
{
    useNamespaces(namespaces);
    std::string packet;
    if (Exiv2::XmpParser::encode(packet, xmp, kPacketFlags, 0) != 0 || packet.empty()) {
        throw PlatformException(PlatformErrorCode::metadataSerialize);
    }
    return packet;
}

} // namespace

std::optional<std::vector<std::uint8_t>> ImageMetadata::xmpData() const
{
    if (empty()) {
        return std::nullopt;
    }
    auto lock = lockExiv2();
    std::string packet;
    try {
        packet = encodePacket(tree_->xmp, tree_->namespaces);
        // Encoding is not a fixed point: the toolkit writes simple properties as attributes ahead
        // of structured ones, so the packet read back lists its namespaces, and then its
        // properties, in another order and encodes differently. It is read back as a later read
        // of the file would (fresh registry) and encoded once more; that form encodes to itself,
        // so saving a saved document gives the same bytes.
        resetNamespaceRegistry();
        Exiv2::XmpData readBack;
        if (Exiv2::XmpParser::decode(readBack, packet) == 0 && !readBack.empty()) {
            packet = encodePacket(readBack, namespacesOf(readBack));
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const PlatformException&) {
        throw;
    } catch (const std::exception& error) {
        throw PlatformException(PlatformErrorCode::metadataSerialize, error.what());
    }
    const auto* first = reinterpret_cast<const std::uint8_t*>(packet.data());
    return std::vector<std::uint8_t>(first, first + packet.size());
}

bool ImageMetadata::empty() const noexcept
{
    return tree_ == nullptr || tree_->xmp.empty();
}

std::vector<std::pair<std::string, std::string>> ImageMetadata::properties() const
{
    std::vector<std::pair<std::string, std::string>> result;
    if (empty()) {
        return result;
    }
    auto lock = lockExiv2();
    result.reserve(static_cast<std::size_t>(tree_->xmp.count()));
    for (const Exiv2::Xmpdatum& datum : tree_->xmp) {
        result.emplace_back(datum.key(), datum.toString());
    }
    return result;
}

std::optional<std::string> ImageMetadata::property(std::string_view key) const
{
    if (empty()) {
        return std::nullopt;
    }
    auto lock = lockExiv2();
    try {
        useNamespaces(tree_->namespaces);
        const auto found = tree_->xmp.findKey(Exiv2::XmpKey(std::string(key)));
        if (found == tree_->xmp.end()) {
            return std::nullopt;
        }
        return found->toString();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) { // a key Exiv2 cannot parse names no property
        return std::nullopt;
    }
}

} // namespace psdkit
