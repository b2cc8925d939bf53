// Metadata target: extracts the image metadata of a file, lists it, serializes it and prepares it
// for export. The first input byte says what the rest is: 0 (mod 4) a whole file; 1, 2, 3 the
// payload of an XMP (1060), EXIF (1058) or IPTC-NAA (1028) image resource, wrapped here into the
// smallest file that carries it, so that the fuzzer works on the metadata parsers directly.
// Prepared metadata must always serialize, and our own packets must settle: reading and writing
// them again gives the same bytes.
#include "psdkit/platform/ImageMetadata.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {
namespace {

void appendUInt(std::vector<std::uint8_t>& bytes, std::uint64_t value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

// A 1 × 1 8-bit RGB file whose only image resource is `id` holding `payload`.
std::vector<std::uint8_t> fileWithResource(std::uint16_t id, std::span<const std::uint8_t> payload)
{
    std::vector<std::uint8_t> file = {'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0};
    appendUInt(file, 3, 2); // channels
    appendUInt(file, 1, 4); // height
    appendUInt(file, 1, 4); // width
    appendUInt(file, 8, 2); // depth
    appendUInt(file, 3, 2); // RGB
    appendUInt(file, 0, 4); // colour mode data
    const std::size_t padded = payload.size() + payload.size() % 2;
    appendUInt(file, 12 + padded, 4); // image resources
    file.insert(file.end(), {'8', 'B', 'I', 'M'});
    appendUInt(file, id, 2);
    appendUInt(file, 0, 2); // empty name, padded
    appendUInt(file, payload.size(), 4);
    file.insert(file.end(), payload.begin(), payload.end());
    file.resize(file.size() + padded - payload.size());
    appendUInt(file, 0, 4);           // layer and mask information
    appendUInt(file, 0, 2);           // raw image data
    file.insert(file.end(), 3, 0xFF); // one pixel of three channels
    return file;
}

} // namespace

Outcome runMetadata(std::span<const std::uint8_t> input)
{
    if (input.empty()) {
        return {};
    }
    static constexpr std::uint16_t resourceIDs[] = {0, 1060, 1058, 1028};
    const std::uint16_t id = resourceIDs[input[0] % 4];
    const std::vector<std::uint8_t> file = id == 0 ? std::vector<std::uint8_t>(input.begin() + 1, input.end())
                                                   : fileWithResource(id, input.subspan(1));

    ImageMetadata metadata;
    if (Outcome extract = attempt([&] { metadata = ImageMetadata::fromFile(file); });
        extract.result != "ok") {
        return violation("metadata extraction threw", extract);
    }
    (void)metadata.properties();
    if (Outcome serialize = attempt([&] { (void)metadata.xmpData(); }); serialize.result != "ok") {
        return serialize;
    }
    if (Outcome prepare = attempt([&] { metadata.prepareForExport(72.0, "com.adobe.photoshop-image"); });
        prepare.result != "ok") {
        return prepare;
    }
    std::optional<std::vector<std::uint8_t>> packet;
    if (Outcome serialize = attempt([&] { packet = metadata.xmpData(); });
        serialize.result != "ok" || !packet) {
        return violation("prepared metadata does not serialize", serialize);
    }
    // The backend normalises on the way through a packet (it drops empty language alternatives
    // and rewrites list separators, for example), so the first packets may differ; from the
    // second packet on, reading and writing must give the same bytes.
    const auto throughFile = [](const std::vector<std::uint8_t>& xmp) {
        ImageMetadata read = ImageMetadata::fromFile(fileWithResource(1060, xmp));
        read.prepareForExport(72.0, "com.adobe.photoshop-image");
        return read.xmpData();
    };
    std::optional<std::vector<std::uint8_t>> second;
    std::optional<std::vector<std::uint8_t>> third;
    if (Outcome round = attempt([&] {
            second = throughFile(*packet);
            third = second ? throughFile(*second) : std::nullopt;
        });
        round.result != "ok" || !third) {
        return violation("our own XMP packet does not read and write again", round);
    }
    if (*third != *second) {
        return violation("our own XMP packet reads and writes to other bytes");
    }
    return {};
}

} // namespace psdkit::fuzz
