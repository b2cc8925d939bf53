// Image metadata of the real files in the corpus, and its independence of what the process read
// before.
#include "psdkit/platform/ImageMetadata.hpp"

#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "support/CorpusFiles.hpp"
#include "support/PsdFixture.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kDocumentTypeIdentifier = "com.adobe.photoshop-image";
constexpr std::uint16_t kXmp = 1060;

// Every corpus file holding an XMP resource (found by the tests' own walk of the file) gives
// metadata with the resolution; the others give none.
TEST(ImageMetadataCorpusTest, MetadataOfEveryFileWithXmpIsFound)
{
    int withXmp = 0;
    for (const auto& name : corpusFileNames()) {
        const Bytes file = readCorpusFile(name);
        const bool hasXmp = firstResource(file, kXmp).has_value();
        const ImageMetadata metadata = ImageMetadata::fromFile(file);
        EXPECT_EQ(metadata.empty(), !hasXmp) << name;
        EXPECT_EQ(metadata.property("Xmp.tiff.XResolution").has_value(), hasXmp) << name;
        withXmp += hasXmp;
    }
    EXPECT_EQ(withXmp, 36);
}

// The XMP packet of a real file with a title added to it keeps the title and every other property
// through an export of a copy with a new resolution.
TEST(ImageMetadataCorpusTest, TitleSurvivesExportWithTheNewResolution)
{
    const auto packet = firstResource(readCorpusFile("psdtools-32bit.psd"), kXmp);
    ASSERT_TRUE(packet.has_value());
    std::string text(packet->begin(), packet->end());
    const std::string title = R"(lang="x-default" Harbour at dusk)";
    text.insert(
        text.find("<dc:format>"),
        R"(<dc:title><rdf:Alt><rdf:li xml:lang="x-default">Harbour at dusk</rdf:li></rdf:Alt></dc:title>)");
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

TEST(ImageMetadataCorpusTest, CutOffFilesNeverThrow)
{
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
    const std::string packet = R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF )"
                               R"(xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
                               R"(<rdf:Description rdf:about="" xmlns:)" +
                               prefix + "=\"" + uri + "\" " + prefix + ":Thing=\"v\"/></rdf:RDF></x:xmpmeta>";
    return fileWithResources({{kXmp, Bytes(packet.begin(), packet.end())}});
}

std::string packetOf(const ImageMetadata& metadata)
{
    const auto packet = metadata.xmpData();
    return packet ? std::string(packet->begin(), packet->end()) : std::string();
}

std::string preparedPacketOf(ImageMetadata metadata)
{
    metadata.prepareForExport(72.0, kDocumentTypeIdentifier);
    return packetOf(metadata);
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

// Every corpus file against one file of each prefix: read A, read B, write A gives what writing A
// right after reading it gives.
TEST(ImageMetadataHistoryTest, CorpusPacketsDoNotDependOnWhatWasReadBefore)
{
    const Bytes xapFile = readCorpusFile("psdtools-clipping-mask.psd");
    const Bytes xmpFile = readCorpusFile("oiio-psd-Layers_16bit_RGB.psd");
    ASSERT_NE(packetOf(ImageMetadata::fromFile(xapFile)).find("xmlns:xmp=\"" + kXap), std::string::npos);
    for (const auto& name : corpusFileNames()) {
        SCOPED_TRACE(name);
        const Bytes file = readCorpusFile(name);
        const std::string alone = preparedPacketOf(ImageMetadata::fromFile(file));
        for (const Bytes* other : {&xapFile, &xmpFile}) {
            const ImageMetadata metadata = ImageMetadata::fromFile(file);
            const ImageMetadata read = ImageMetadata::fromFile(*other);
            EXPECT_EQ(preparedPacketOf(metadata), alone);
            EXPECT_FALSE(read.empty());
        }
    }
}

} // namespace
} // namespace psdkit
