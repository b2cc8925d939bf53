#include "psdkit/platform/ImageMetadata.hpp"

#include <cmath>
#include <limits>
#include <string_view>

#include <gtest/gtest.h>

#include "psdkit/platform/PlatformError.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using testing::ByteBuilder;
using testing::fileWithResources;
using testing::Resource;
using testing::thrownError;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kDocumentTypeIdentifier = "com.adobe.photoshop-image";

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}
std::string textOf(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

Bytes xmpPacket(std::string_view descriptionBody)
{
    return bytesOf(
        std::string(R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF )"
                    R"(xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
                    R"(<rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/">)") +
        std::string(descriptionBody) + "</rdf:Description></rdf:RDF></x:xmpmeta>");
}

// A big-endian TIFF structure with one directory holding ASCII tags; each text has at least
// four characters, so that it is stored outside the directory entry.
Bytes exifWithText(const std::vector<std::pair<std::uint16_t, std::string>>& tags)
{
    ByteBuilder b;
    b.ascii("MM").u16(42).u32(8).u16(tags.size());
    std::size_t dataOffset = 8 + 2 + 12 * tags.size() + 4;
    for (const auto& [tag, text] : tags) {
        b.u16(tag).u16(2).u32(text.size() + 1).u32(dataOffset);
        dataOffset += text.size() + 1;
    }
    b.u32(0);
    for (const auto& [tag, text] : tags) {
        b.ascii(text).u8(0);
    }
    return b.bytes();
}

// IPTC-NAA records of the application record (2).
Bytes iptcWithDataSets(const std::vector<std::pair<std::uint8_t, std::string>>& dataSets)
{
    ByteBuilder b;
    for (const auto& [number, text] : dataSets) {
        b.u8(0x1C).u8(2).u8(number).u16(text.size()).ascii(text);
    }
    return b.bytes();
}

constexpr std::uint16_t kXmp = 1060;
constexpr std::uint16_t kExif = 1058;
constexpr std::uint16_t kIptc = 1028;

TEST(ImageMetadataTest, EmptyMetadataGetsAPacketOnlyOncePreparedForExport)
{
    ImageMetadata metadata;
    EXPECT_TRUE(metadata.empty());
    EXPECT_FALSE(metadata.xmpData().has_value());
    metadata.prepareForExport(72.0, kDocumentTypeIdentifier);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Xmp.tiff.XResolution", "720000/10000"},
        {"Xmp.tiff.YResolution", "720000/10000"},
        {"Xmp.tiff.ResolutionUnit", "2"},
        {"Xmp.dc.format", "application/vnd.adobe.photoshop"},
    };
    EXPECT_EQ(metadata.properties(), expected);
    const auto packet = metadata.xmpData();
    ASSERT_TRUE(packet.has_value());
    const std::string text = textOf(*packet);
    EXPECT_EQ(text.rfind("<?xpacket begin=", 0), 0u) << text;
    EXPECT_TRUE(text.ends_with(R"(<?xpacket end="r"?>)")) << text;
    EXPECT_EQ(ImageMetadata::fromFile(fileWithResources({{kXmp, *packet}})).properties(), expected);

    // The resolution is a rational over ten thousand.
    for (const auto& [resolution, rational] : {std::pair{300.0, "3000000/10000"},
                                               {72.009, "720090/10000"},
                                               {0.00004, "0/10000"},
                                               {0.0, "0/10000"}}) {
        ImageMetadata other;
        other.prepareForExport(resolution, "public.tiff");
        EXPECT_EQ(other.property("Xmp.tiff.XResolution"), rational) << resolution;
        EXPECT_EQ(other.property("Xmp.dc.format"), "public.tiff");
    }
}

TEST(ImageMetadataTest, RefusedExportLeavesTheMetadataUnchanged)
{
    ImageMetadata metadata;
    metadata.prepareForExport(72.0, kDocumentTypeIdentifier);
    const auto before = metadata.xmpData();
    for (const auto& [resolution, fileType] : std::vector<std::pair<double, std::string_view>>{
             {std::nan(""), kDocumentTypeIdentifier},
             {std::numeric_limits<double>::infinity(), kDocumentTypeIdentifier},
             {-1.0, kDocumentTypeIdentifier},
             {500000.0, kDocumentTypeIdentifier},
             {300.0, ""}}) {
        EXPECT_EQ(thrownError([&] { metadata.prepareForExport(resolution, fileType); }),
                  PlatformErrorCode::metadataPrepare)
            << resolution << " " << fileType;
        EXPECT_EQ(metadata.xmpData(), before);
    }
}

TEST(ImageMetadataTest, ResourcesAreFoundInPsdAndPsbWhereverTheyAre)
{
    const Bytes title =
        xmpPacket(R"(<dc:title><rdf:Alt><rdf:li xml:lang="x-default">Pier</rdf:li></rdf:Alt></dc:title>)");
    Bytes padded = title;
    padded.resize(padded.size() + 7, 0);
    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"PSD, alone", fileWithResources({{kXmp, title}})},
        {"PSB, alone", fileWithResources({{kXmp, title}}, 2)},
        {"after a named resource of odd size",
         fileWithResources({{1005, Bytes(3, 1), "ab"}, {4000, Bytes(5, 2), "c"}, {kXmp, title}})},
        {"named itself", fileWithResources({{kXmp, title, "XMP"}})},
        {"with NUL bytes after the packet", fileWithResources({{kXmp, padded}})},
    };
    for (const auto& [name, file] : cases) {
        EXPECT_EQ(ImageMetadata::fromFile(file).property("Xmp.dc.title"), R"(lang="x-default" Pier)") << name;
    }
}

TEST(ImageMetadataTest, ExifAndIptcAreConvertedAndTheXmpPacketWins)
{
    const Bytes xmp = xmpPacket(
        R"(<dc:description><rdf:Alt><rdf:li xml:lang="x-default">from XMP</rdf:li></rdf:Alt></dc:description>)");
    const Bytes exif = exifWithText({{0x010E, "from EXIF"}, {0x0131, "Darkroom 3"}}); // description, software
    const Bytes iptc = iptcWithDataSets({{5, "Harbour"}});                            // object name

    const ImageMetadata all =
        ImageMetadata::fromFile(fileWithResources({{kIptc, iptc}, {kExif, exif}, {kXmp, xmp}}));
    EXPECT_EQ(all.property("Xmp.dc.description"), R"(lang="x-default" from XMP)");
    EXPECT_EQ(all.property("Xmp.tiff.Software"), "Darkroom 3");
    EXPECT_EQ(all.property("Xmp.dc.title"), R"(lang="x-default" Harbour)");

    const ImageMetadata exifOnly = ImageMetadata::fromFile(fileWithResources({{kExif, exif}}));
    EXPECT_EQ(exifOnly.property("Xmp.dc.description"), R"(lang="x-default" from EXIF)");
}

TEST(ImageMetadataTest, UnreadableInputGivesEmptyMetadata)
{
    const Bytes xmp = xmpPacket(R"(<dc:format>image/png</dc:format>)");
    const Bytes good = fileWithResources({{kXmp, xmp}});
    const auto edited = [&](std::size_t at, std::uint8_t value) {
        Bytes file = good;
        file[at] = value;
        return file;
    };

    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"empty", {}},
        {"signature only", bytesOf("8BPS")},
        {"not a PSD", bytesOf("GIF89a and then some more bytes of no interest")},
        {"version 3", edited(5, 3)},
        {"resource signature not 8BIM", edited(34, 'X')},
        {"colour mode data longer than the file", edited(26, 0xFF)},
        {"cut inside the XMP resource", Bytes(good.begin(), good.end() - 10)},
        {"malformed XMP", fileWithResources({{kXmp, bytesOf("<x:xmpmeta><rdf:RDF><unclosed")}})},
        {"XMP that is not XML", fileWithResources({{kXmp, Bytes(100, 0xFF)}})},
        {"EXIF directory outside the data",
         fileWithResources({{kExif, Bytes{'M', 'M', 0, 42, 0xFF, 0xFF, 0xFF, 0xF0}}})},
        {"EXIF directory running out",
         fileWithResources({{kExif, Bytes{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 9}}})},
        {"malformed IPTC", fileWithResources({{kIptc, Bytes{0x1C, 2, 5, 0xFF, 0xFF, 'a'}}})},
        {"empty resources", fileWithResources({{kXmp, {}}, {kExif, {}}, {kIptc, {}}})},
    };
    for (const auto& [name, file] : cases) {
        ImageMetadata metadata;
        ASSERT_NO_THROW(metadata = ImageMetadata::fromFile(file)) << name;
        EXPECT_TRUE(metadata.empty()) << name;
        EXPECT_FALSE(metadata.xmpData().has_value()) << name;
    }
}

} // namespace
} // namespace psdkit
