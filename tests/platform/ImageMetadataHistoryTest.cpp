// The XMP packet written for a tree depends on that tree alone, not on the packets the process
// read before it: the namespace prefixes a packet binds must not leak into other documents.
#include "psdkit/platform/ImageMetadata.hpp"

#include <string>

#include <gtest/gtest.h>

#include "platform/PlatformTestSupport.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {
using testing::corpusDir;
using testing::fileWithResources;
using testing::readFileBytes;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kXmp = 1060;
constexpr std::string_view kPhotoshopImage = "com.adobe.photoshop-image";

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
    metadata.prepareForExport(72.0, kPhotoshopImage);
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
    const Bytes xapFile = readFileBytes(corpusDir() / "psdtools-clipping-mask.psd");
    const Bytes xmpFile = readFileBytes(corpusDir() / "oiio-psd-Layers_16bit_RGB.psd");
    ASSERT_NE(packetOf(ImageMetadata::fromFile(xapFile)).find("xmlns:xmp=\"" + kXap), std::string::npos);
    for (const auto& entry : std::filesystem::directory_iterator(corpusDir())) {
        const auto ext = entry.path().extension();
        if (ext != ".psd" && ext != ".psb") {
            continue;
        }
        SCOPED_TRACE(entry.path().filename().string());
        const Bytes file = readFileBytes(entry.path());
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
