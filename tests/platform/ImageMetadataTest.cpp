// Image metadata: XMP, EXIF and IPTC of files, export, refused input, the corpus, and packet history.
#include "psdkit/platform/ImageMetadata.hpp"

#include <cmath>
#include <limits>
#include <string_view>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/platform/PlatformError.hpp"
#include "support/CorpusFiles.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kDocumentTypeIdentifier = "com.adobe.photoshop-image";

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

// An XMP packet of one description with the given attributes (namespace bindings first) and body.
Bytes xmpPacket(std::string_view body,
                std::string_view attributes = R"(xmlns:dc="http://purl.org/dc/elements/1.1/")")
{
    return bytesOf(
        std::string(
            R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF )"
            R"(xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#"><rdf:Description rdf:about="" )") +
        std::string(attributes) + ">" + std::string(body) + "</rdf:Description></rdf:RDF></x:xmpmeta>");
}

// A language alternative of the Dublin Core property `name` with one default-language text.
std::string defaultText(std::string_view name, std::string_view text)
{
    return "<dc:" + std::string(name) + R"(><rdf:Alt><rdf:li xml:lang="x-default">)" + std::string(text) +
           "</rdf:li></rdf:Alt></dc:" + std::string(name) + ">";
}

constexpr std::uint16_t kXmp = 1060;
constexpr std::uint16_t kExif = 1058;
constexpr std::uint16_t kIptc = 1028;

TEST(ImageMetadataTest, EmptyMetadataGetsAPacketOnlyOncePreparedForExportAndARefusedExportChangesNothing)
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
    const std::string text(packet->begin(), packet->end());
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

    // A refused export leaves the metadata unchanged.
    ImageMetadata prepared;
    prepared.prepareForExport(72.0, kDocumentTypeIdentifier);
    const auto before = prepared.xmpData();
    for (const auto& [resolution, fileType] : std::vector<std::pair<double, std::string_view>>{
             {std::nan(""), kDocumentTypeIdentifier},
             {std::numeric_limits<double>::infinity(), kDocumentTypeIdentifier},
             {-1.0, kDocumentTypeIdentifier},
             {500000.0, kDocumentTypeIdentifier},
             {300.0, ""}}) {
        EXPECT_EQ(thrownError([&] { prepared.prepareForExport(resolution, fileType); }),
                  PlatformErrorCode::metadataPrepare)
            << resolution << " " << fileType;
        EXPECT_EQ(prepared.xmpData(), before);
    }
}

// The resource walk is the document reader's, checked against psd-tools on every corpus file; an XMP
// packet may be followed by NUL bytes.
TEST(ImageMetadataTest, ExifAndIptcAreConvertedAndTheXmpPacketWins)
{
    Bytes xmp = xmpPacket(defaultText("description", "from XMP"));
    xmp.resize(xmp.size() + 7, 0);
    // A big-endian TIFF directory of two ASCII tags, description and software, their texts after it.
    ByteBuilder exif;
    exif.ascii("MM").u16(42).u32(8).u16(2).u16(0x010E).u16(2).u32(10).u32(38).u16(0x0131).u16(2).u32(11);
    exif.u32(48).u32(0).ascii("from EXIF").u8(0).ascii("Darkroom 3").u8(0);
    const Bytes iptc = ByteBuilder().u8(0x1C).u8(2).u8(5).u16(7).ascii("Harbour").bytes(); // object name
    const ImageMetadata all =
        ImageMetadata::fromFile(fileWithResources({{kIptc, iptc}, {kExif, exif.bytes()}, {kXmp, xmp}}));
    EXPECT_EQ(all.property("Xmp.dc.description"), R"(lang="x-default" from XMP)");
    EXPECT_EQ(all.property("Xmp.tiff.Software"), "Darkroom 3");
    EXPECT_EQ(all.property("Xmp.dc.title"), R"(lang="x-default" Harbour)");

    const ImageMetadata exifOnly = ImageMetadata::fromFile(fileWithResources({{kExif, exif.bytes()}}));
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

// The XMP packet of a real file with a title added to it keeps the title and every other property
// through an export of a copy with a new resolution.
TEST(ImageMetadataCorpusTest, TitleSurvivesExportWithTheNewResolution)
{
    const auto packet = firstResource(readCorpusFile("psdtools-32bit.psd"), kXmp);
    ASSERT_TRUE(packet.has_value());
    std::string text(packet->begin(), packet->end());
    const std::string title = R"(lang="x-default" Harbour at dusk)";
    text.insert(text.find("<dc:format>"), defaultText("title", "Harbour at dusk"));
    const ImageMetadata read =
        ImageMetadata::fromFile(fileWithResources({{kXmp, Bytes(text.begin(), text.end())}}));
    ASSERT_EQ(read.property("Xmp.dc.title"), title);
    ASSERT_EQ(read.property("Xmp.tiff.XResolution"), "720000/10000");

    ImageMetadata exported = read;
    exported.prepareForExport(300.0, kDocumentTypeIdentifier);
    const ImageMetadata reread =
        ImageMetadata::fromFile(fileWithResources({{kXmp, exported.xmpData().value()}}));
    EXPECT_EQ(reread.property("Xmp.dc.title"), title);
    EXPECT_EQ(reread.property("Xmp.tiff.XResolution"), "3000000/10000");
    EXPECT_EQ(reread.property("Xmp.tiff.YResolution"), "3000000/10000");
    EXPECT_EQ(reread.property("Xmp.xmp.CreatorTool"), "Adobe Photoshop CS3 Windows");
    EXPECT_EQ(reread.properties().size(), read.properties().size());
    EXPECT_EQ(read.property("Xmp.tiff.XResolution"), "720000/10000") << "the original is untouched";
}

// Every corpus file holding an XMP resource (found by the tests' own walk of the file) gives
// metadata with the resolution, the others none. That their packets do not depend on the files read
// before is checked on the written bytes of every corpus file by the corpus round trip.
TEST(ImageMetadataCorpusTest, MetadataIsFoundInEveryFileWithAPacketAndCutOffFilesNeverThrow)
{
    int withXmp = 0;
    for (const auto& name : corpusFileNames()) {
        const Bytes file = readCorpusFile(name);
        const bool hasXmp = firstResource(file, kXmp).has_value();
        withXmp += hasXmp;
        const ImageMetadata metadata = ImageMetadata::fromFile(file);
        EXPECT_EQ(metadata.empty(), !hasXmp) << name;
        EXPECT_EQ(metadata.property("Xmp.tiff.XResolution").has_value(), hasXmp) << name;
    }
    EXPECT_EQ(withXmp, 36);

    // Cut a file with XMP, EXIF and IPTC at many points up to the end of its resources, so that
    // every resource is cut somewhere in its length field or its data.
    const Bytes file = readCorpusFile("agpsd-psb.psb");
    ASSERT_GT(file.size(), 40000u);
    for (std::size_t length = 0; length < 40000; length += 97) {
        const Bytes prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_NO_THROW((void)ImageMetadata::fromFile(prefix)) << length;
    }
}

// The XMP packet written for a tree depends on that tree alone, not on the packets the process
// read before it: the namespace prefixes a packet binds must not leak into other documents.

// A file whose XMP packet binds `prefix` to `uri` and sets its property "Thing" to "v".
Bytes fileBinding(const std::string& prefix, const std::string& uri)
{
    return fileWithResources(
        {{kXmp, xmpPacket("", "xmlns:" + prefix + "=\"" + uri + "\" " + prefix + ":Thing=\"v\"")}});
}

std::string packetOf(const ImageMetadata& metadata)
{
    const auto packet = metadata.xmpData();
    return packet ? std::string(packet->begin(), packet->end()) : std::string();
}

const std::string kXap = "http://ns.adobe.com/xap/1.0/";

TEST(ImageMetadataHistoryTest, PacketsReadInBetweenChangeNeitherKeysNorPacket)
{
    const std::string a = "http://example.com/a/", b = "http://example.com/b/";
    // The file read and written, the one read in between, the key and binding the first must keep.
    const std::tuple<Bytes, Bytes, std::string, std::string> cases[] = {
        {fileBinding("xap", kXap), fileBinding("xmp", kXap), "Xmp.xmp.Thing", "xmlns:xmp=\"" + kXap},
        {fileBinding("xmp", kXap), fileBinding("xap", kXap), "Xmp.xmp.Thing", "xmlns:xmp=\"" + kXap},
        {fileBinding("own", a), fileBinding("own", b), "Xmp.own.Thing", "xmlns:own=\"" + a},
        {fileBinding("own", a), fileBinding("other", a), "Xmp.own.Thing", "xmlns:own=\"" + a},
    };
    for (const auto& [firstFile, betweenFile, key, binding] : cases) {
        SCOPED_TRACE(key + " " + binding);
        const std::string alone = packetOf(ImageMetadata::fromFile(firstFile));
        const ImageMetadata first = ImageMetadata::fromFile(firstFile);
        const ImageMetadata between = ImageMetadata::fromFile(betweenFile);
        EXPECT_EQ(packetOf(first), alone);
        EXPECT_NE(alone.find(binding), std::string::npos) << alone;
        EXPECT_EQ(first.properties(), (std::vector<std::pair<std::string, std::string>>{{key, "v"}}));
        // The one read in between is read as if it came first.
        const ImageMetadata betweenAlone = ImageMetadata::fromFile(betweenFile);
        EXPECT_EQ(between.properties(), betweenAlone.properties());
        EXPECT_EQ(packetOf(between), packetOf(betweenAlone));
    }
}

} // namespace
} // namespace psdkit
