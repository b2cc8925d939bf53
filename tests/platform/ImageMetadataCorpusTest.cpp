// Image metadata of the real files in the corpus.
#include "psdkit/platform/ImageMetadata.hpp"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform/PlatformTestSupport.hpp"

namespace psdkit {
namespace {
using testing::corpusDir;
using testing::fileWithResources;
using testing::readFileBytes;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view kPhotoshopImage = "com.adobe.photoshop-image";

// Which corpus files hold an XMP resource (1060), as an independent reader lists them (and, for
// the one file it cannot read, the corpus notes).
const std::set<std::string> kFilesWithXmp = {
    "agpsd-16bits.psd",
    "agpsd-bitmap.psd",
    "agpsd-effects.psd",
    "agpsd-groups.psd",
    "agpsd-layer-larger-than-drawing.psd",
    "agpsd-nested.psd",
    "agpsd-psb.psb",
    "oiio-psd-Layers_16bit_RGB.psd",
    "oiio-psd-Layers_32bit_RGB.psd",
    "oiio-psd-Layers_8bit_RGB.psd",
    "oiio-psd-colormodes-pattern2-32-rgb.psd",
    "oiio-psd-colormodes-pattern2-8-lab.psd",
    "oiio-psd-different-mask-size.psd",
    "pillow-negative_top_left_layer.psd",
    "psdjs-example.psd",
    "psdtools-16bit5x5.psb",
    "psdtools-2layer_8ele_tblocks.psd",
    "psdtools-32bit.psd",
    "psdtools-32bit5x5.psb",
    "psdtools-adjustments-posterize_16bits_rgb.psd",
    "psdtools-blend-modes-rgb-blend-modes.psd",
    "psdtools-clipping-mask.psd",
    "psdtools-colormodes-4x4_8bit_cmyk.psd",
    "psdtools-colormodes-4x4_8bit_grayscale.psd",
    "psdtools-colormodes-4x4_8bit_index_color.psd",
    "psdtools-colormodes-4x4_8bit_rgba.psd",
    "psdtools-effects-stroke-without-vector-mask.psd",
    "psdtools-empty-layer.psd",
    "psdtools-fill_adjustments.psd",
    "psdtools-group.psb",
    "psdtools-layer-name-emoji.psd",
    "psdtools-layer_mask_data.psd",
    "psdtools-mask_parameters.psd",
    "psdtools-placedLayer.psd",
    "psdtools-text.psd",
    "psdtools-transparentbg.psd",
};
const std::set<std::string> kFilesWithoutXmp = {
    "pillow-rgba.psd",
    "psdtools-0layers.psd",
    "psdtools-1layer.psd",
    "psdtools-broken-groups.psd",
    "psdtools-transparentbg-gimp.psd",
};

std::vector<std::filesystem::path> corpusFiles()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(corpusDir())) {
        const auto extension = entry.path().extension();
        if (extension == ".psd" || extension == ".psb") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

class ImageMetadataCorpusTest : public ::testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_TRUE(std::filesystem::is_directory(corpusDir())) << "corpus missing at " << corpusDir();
    }
};

TEST_F(ImageMetadataCorpusTest, MetadataOfEveryFileWithXmpIsFound)
{
    std::set<std::string> seen;
    for (const auto& path : corpusFiles()) {
        const std::string name = path.filename().string();
        seen.insert(name);
        ImageMetadata metadata;
        ASSERT_NO_THROW(metadata = ImageMetadata::fromFile(readFileBytes(path))) << name;
        if (kFilesWithXmp.count(name) == 0) {
            EXPECT_EQ(kFilesWithoutXmp.count(name), 1u) << name << " is new to the corpus: list it above";
            EXPECT_TRUE(metadata.empty()) << name;
            continue;
        }
        EXPECT_FALSE(metadata.empty()) << name;
        EXPECT_TRUE(metadata.property("Xmp.tiff.XResolution").has_value()) << name;
        EXPECT_NO_THROW(metadata.prepareForExport(72.0, kPhotoshopImage)) << name;
        EXPECT_NO_THROW((void)metadata.xmpData()) << name;
    }
    for (const std::string& name : kFilesWithXmp) {
        EXPECT_EQ(seen.count(name), 1u) << name << " missing from the corpus";
    }
}

// The XMP packet of a real file with a title added to it, in a file of its own.
Bytes realPacketWithTitle()
{
    const auto packet = testing::firstResource(readFileBytes(corpusDir() / "psdtools-32bit.psd"), 1060);
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

TEST_F(ImageMetadataCorpusTest, TitleSurvivesExportWithTheNewResolution)
{
    const ImageMetadata read = ImageMetadata::fromFile(fileWithResources({{1060, realPacketWithTitle()}}));
    ASSERT_EQ(read.property("Xmp.dc.title"), R"(lang="x-default" Harbour at dusk)");
    ASSERT_EQ(read.property("Xmp.tiff.XResolution"), "720000/10000");

    ImageMetadata exported = read;
    exported.prepareForExport(300.0, kPhotoshopImage);
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

TEST_F(ImageMetadataCorpusTest, ExportOfTheSameDocumentGivesTheSameBytes)
{
    const Bytes file = readFileBytes(corpusDir() / "agpsd-psb.psb");
    auto exportOnce = [&] {
        ImageMetadata metadata = ImageMetadata::fromFile(file);
        metadata.prepareForExport(300.0, kPhotoshopImage);
        return metadata.xmpData();
    };
    const auto first = exportOnce();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(exportOnce(), first);

    ImageMetadata twice = ImageMetadata::fromFile(file);
    twice.prepareForExport(300.0, kPhotoshopImage);
    twice.prepareForExport(300.0, kPhotoshopImage);
    EXPECT_EQ(twice.xmpData(), first);
}

TEST_F(ImageMetadataCorpusTest, CutOffFilesNeverThrow)
{
    // Cut a file with XMP, EXIF and IPTC at many points up to the end of its resources, so that
    // every resource is cut somewhere in its length field or its data.
    const Bytes file = readFileBytes(corpusDir() / "agpsd-psb.psb");
    ASSERT_GT(file.size(), 40000u);
    for (std::size_t length = 0; length < 40000; length += 97) {
        const Bytes prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_NO_THROW((void)ImageMetadata::fromFile(prefix)) << length;
    }
}

} // namespace
} // namespace psdkit
