// Image metadata of the real files in the corpus, and its independence of what the process read
// before.
#include "psdkit/platform/ImageMetadata.hpp"

#include <string>

#include <gtest/gtest.h>

#include "support/CorpusFiles.hpp"
#include "support/PsdFixture.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kDocumentTypeIdentifier = "com.adobe.photoshop-image";

// Every corpus file holding an XMP resource (1060, found by the tests' own walk of the file) gives
// metadata with the resolution; the others give none.
TEST(ImageMetadataCorpusTest, MetadataOfEveryFileWithXmpIsFound)
{
    int withXmp = 0;
    for (const auto& name : corpusFileNames()) {
        const Bytes file = readCorpusFile(name);
        ImageMetadata metadata;
        ASSERT_NO_THROW(metadata = ImageMetadata::fromFile(file)) << name;
        const bool hasXmp = firstResource(file, 1060).has_value();
        EXPECT_EQ(metadata.empty(), !hasXmp) << name;
        if (hasXmp) {
            ++withXmp;
            EXPECT_TRUE(metadata.property("Xmp.tiff.XResolution").has_value()) << name;
            EXPECT_NO_THROW(metadata.prepareForExport(72.0, kDocumentTypeIdentifier)) << name;
            EXPECT_NO_THROW((void)metadata.xmpData()) << name;
        }
    }
    EXPECT_EQ(withXmp, 36);
}

// The XMP packet of a real file with a title added to it, in a file of its own.
Bytes realPacketWithTitle()
{
    const auto packet = firstResource(readCorpusFile("psdtools-32bit.psd"), 1060);
    EXPECT_TRUE(packet.has_value());
    std::string text(packet->begin(), packet->end());
    const std::string format = "<dc:format>";
    const auto at = text.find(format);
    EXPECT_NE(at, std::string::npos);
    text.insert(
        at,
        R"(<dc:title><rdf:Alt><rdf:li xml:lang="x-default">Harbour at dusk</rdf:li></rdf:Alt></dc:title>)");
    return {text.begin(), text.end()};
}

TEST(ImageMetadataCorpusTest, TitleSurvivesExportWithTheNewResolution)
{
    const ImageMetadata read = ImageMetadata::fromFile(fileWithResources({{1060, realPacketWithTitle()}}));
    ASSERT_EQ(read.property("Xmp.dc.title"), R"(lang="x-default" Harbour at dusk)");
    ASSERT_EQ(read.property("Xmp.tiff.XResolution"), "720000/10000");

    ImageMetadata exported = read;
    exported.prepareForExport(300.0, kDocumentTypeIdentifier);
    const auto packet = exported.xmpData();
    ASSERT_TRUE(packet.has_value());

    const ImageMetadata reread = ImageMetadata::fromFile(fileWithResources({{1060, *packet}}));
    EXPECT_EQ(reread.property("Xmp.dc.title"), R"(lang="x-default" Harbour at dusk)");
    EXPECT_EQ(reread.property("Xmp.tiff.XResolution"), "3000000/10000");
    EXPECT_EQ(reread.property("Xmp.tiff.YResolution"), "3000000/10000");
    EXPECT_EQ(reread.property("Xmp.xmp.CreatorTool"), "Adobe Photoshop CS3 Windows");
    EXPECT_EQ(reread.properties().size(), read.properties().size());
    EXPECT_EQ(read.property("Xmp.tiff.XResolution"), "720000/10000") << "the original is untouched";
}

TEST(ImageMetadataCorpusTest, ExportOfTheSameDocumentGivesTheSameBytes)
{
    const Bytes file = readCorpusFile("agpsd-psb.psb");
    auto exportOnce = [&] {
        ImageMetadata metadata = ImageMetadata::fromFile(file);
        metadata.prepareForExport(300.0, kDocumentTypeIdentifier);
        return metadata.xmpData();
    };
    const auto first = exportOnce();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(exportOnce(), first);

    ImageMetadata twice = ImageMetadata::fromFile(file);
    twice.prepareForExport(300.0, kDocumentTypeIdentifier);
    twice.prepareForExport(300.0, kDocumentTypeIdentifier);
    EXPECT_EQ(twice.xmpData(), first);
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
constexpr std::uint16_t kXmp = 1060;

// A file whose XMP packet binds `prefix` to `uri` and sets one property with it.
Bytes fileBinding(const std::string& prefix, const std::string& uri, const std::string& value = "v")
{
    const std::string packet = R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF )"
                               R"(xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
                               R"(<rdf:Description rdf:about="" xmlns:)" +
                               prefix + "=\"" + uri + "\" " + prefix + ":Thing=\"" + value +
                               R"("/></rdf:RDF></x:xmpmeta>)";
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
    struct Case {
        const char* name;
        Bytes first;   // read and written
        Bytes between; // read after it, before it is written
        std::string expectedKey;
        std::string expectedBinding;
    };
    const Case cases[] = {
        {"xap, then xmp for the same namespace", fileBinding("xap", kXap), fileBinding("xmp", kXap),
         "Xmp.xmp.Thing", "xmlns:xmp=\"" + kXap + "\""},
        {"xmp, then xap for the same namespace", fileBinding("xmp", kXap), fileBinding("xap", kXap),
         "Xmp.xmp.Thing", "xmlns:xmp=\"" + kXap + "\""},
        {"own prefix, then the same prefix for another URI", fileBinding("own", "http://example.com/a/"),
         fileBinding("own", "http://example.com/b/"), "Xmp.own.Thing", "xmlns:own=\"http://example.com/a/\""},
        {"own prefix, then another prefix for the same URI", fileBinding("own", "http://example.com/a/"),
         fileBinding("other", "http://example.com/a/"), "Xmp.own.Thing",
         "xmlns:own=\"http://example.com/a/\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string alone = packetOf(ImageMetadata::fromFile(c.first));
        const ImageMetadata first = ImageMetadata::fromFile(c.first);
        const ImageMetadata between = ImageMetadata::fromFile(c.between);
        EXPECT_EQ(packetOf(first), alone);
        EXPECT_NE(alone.find(c.expectedBinding), std::string::npos) << alone;
        EXPECT_EQ(first.property(c.expectedKey), "v");
        ASSERT_EQ(first.properties().size(), 1U);
        EXPECT_EQ(first.properties()[0].first, c.expectedKey);
        // The one read in between is read as if it came first.
        const ImageMetadata betweenAlone = ImageMetadata::fromFile(c.between);
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
