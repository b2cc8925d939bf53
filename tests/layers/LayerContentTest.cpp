// What a layer holds as a user knows it: the layer tree, kinds, text, placed files, the header
// probe and the texts of refusals. Synthetic layers carry their blocks in `uninterpretedBlocks`
// as reading with `keepUnknownBlocks` leaves them.
#include <gtest/gtest.h>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/document/PSDFileHeader.hpp"
#include "psdkit/document/PSDLinkedFiles.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"
#include "psdkit/layers/PSDLayerTree.hpp"
#include "support/ByteBuilder.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {
using psdkit::testing::ByteBuilder;
using V = std::vector<std::uint8_t>;

std::shared_ptr<PSDLayerWrapper> layerOf(PSDLayerType type, std::vector<std::string> blockKeys = {})
{
    auto layer = std::make_shared<PSDLayerWrapper>();
    layer->setType(type);
    for (const std::string& key : blockKeys) {
        layer->uninterpretedBlocks.push_back(
            PSDRawBlock{PSDFourCharCode("8BIM"), PSDFourCharCode(key), false, PSDSharedBytes(V{0, 0})});
    }
    return layer;
}

void addBlock(PSDLayerWrapper& layer, const char* key, V body)
{
    layer.uninterpretedBlocks.push_back(
        PSDRawBlock{"8BIM", PSDFourCharCode(std::string(key)), false, PSDSharedBytes(std::move(body))});
}

V descriptorBytes(const std::vector<std::pair<const char*, PSDDescriptorPropertyValue>>& items)
{
    PSDDescriptor descriptor;
    for (const auto& [key, value] : items) {
        descriptor.set(PSDFourCharCode(std::string(key)), value);
    }
    return descriptor.data();
}

V textBlock(const std::string& text)
{
    ByteBuilder b;
    b.u16(1).zeros(6 * 8).u16(50).raw(descriptorBytes({{"Txt ", PSDDescriptorPropertyValue(text)}}));
    return b.bytes();
}

TEST(LayerContentKind, FollowsTypeThenBlocks)
{
    using K = PSDLayerContentKind;
    const auto solid = PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor);
    const auto levels = PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::levels);
    const struct {
        PSDLayerType type;
        std::vector<std::string> keys;
        K expected;
    } cases[] = {
        {PSDLayerType::regular(), {}, K::pixel},
        {PSDLayerType::regular(), {"vmsk"}, K::pixel}, // a pixel layer with a vector mask
        {PSDLayerType::regular(), {"TySh"}, K::text},
        {PSDLayerType::regular(), {"SoLd"}, K::smartObject},
        {PSDLayerType::regular(), {"PlLd"}, K::smartObject},
        {PSDLayerType::regular(), {"vogk"}, K::shape},
        {solid, {}, K::fill},
        {solid, {"vsms"}, K::shape},
        {levels, {}, K::adjustment},
        {levels, {"vmsk"}, K::adjustment},
        {PSDLayerType::group(), {}, K::group},
        {PSDLayerType::sceneGroup(), {}, K::group},
        {PSDLayerType::artboard(), {}, K::artboard},
        {PSDLayerType::sectionDivider(), {"TySh"}, K::groupEnd},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(layerContentKind(*layerOf(c.type, c.keys)), c.expected)
            << c.type.description() << " " << (c.keys.empty() ? "" : c.keys[0]);
    }
}

TEST(LayerContentKind, BlockLookupSearchesKeptAndUninterpretedBlocks)
{
    PSDLayerWrapper layer;
    layer.taggedData.insertOrAssign(PSDFourCharCode("SoCo"), V{1, 2, 3});
    addBlock(layer, "TySh", V{4});
    ASSERT_TRUE(findLayerBlock(layer, PSDFourCharCode("SoCo")));
    EXPECT_EQ(findLayerBlock(layer, PSDFourCharCode("SoCo"))->size(), 3U);
    ASSERT_TRUE(findLayerBlock(layer, PSDFourCharCode("TySh")));
    EXPECT_EQ((*findLayerBlock(layer, PSDFourCharCode("TySh")))[0], 4);
    EXPECT_FALSE(findLayerBlock(layer, PSDFourCharCode("SoLd")));
}

TEST(LayerText, ReadsTheStringOfTheTextDescriptor)
{
    PSDLayerWrapper layer;
    addBlock(layer, "TySh", textBlock("Hello\rWorld \xD0\xA4\xD0\xBE\xD0\xBD"));
    EXPECT_EQ(layerText(layer), std::optional<std::string>("Hello\nWorld \xD0\xA4\xD0\xBE\xD0\xBD"));

    PSDLayerWrapper truncated;
    V bytes = textBlock("Hello");
    bytes.resize(bytes.size() - 3);
    addBlock(truncated, "TySh", bytes);
    EXPECT_EQ(layerText(truncated), std::nullopt);
    EXPECT_EQ(layerText(PSDLayerWrapper()), std::nullopt);
}

// One embedded ("liFD") entry of a linked-file block.
void appendEmbeddedEntry(ByteBuilder& b, const std::string& id, const std::string& name, const char* type,
                         const V& data)
{
    ByteBuilder entry;
    entry.ascii("liFD").u32(2).pascal(id).unicode(name).ascii(type).ascii("    ").i64(
        static_cast<std::int64_t>(data.size()));
    entry.u8(0).raw(data);
    b.i64(static_cast<std::int64_t>(entry.size())).raw(entry.bytes());
    while (b.size() % 4 != 0) {
        b.u8(0);
    }
}

TEST(LinkedFiles, SmartObjectLayersFindTheirEmbeddedFile)
{
    PSDWrapper document;
    ByteBuilder links;
    appendEmbeddedEntry(links, "id-one", "photo.png", "png ", V{0x89, 'P', 'N', 'G', 1});
    appendEmbeddedEntry(links, "id-two", "paint.psd", "8BPS", V{7, 7});
    document.uninterpretedBlocks.push_back(
        PSDRawBlock{PSDFourCharCode("8BIM"), "lnk2", false, PSDSharedBytes(links.bytes())});

    auto placed = std::make_shared<PSDLayerWrapper>();
    ByteBuilder soLd;
    soLd.ascii("soLD").u32(4).raw(descriptorBytes({{"Idnt", PSDDescriptorPropertyValue("id-two")}}));
    addBlock(*placed, "SoLd", soLd.bytes());
    auto legacy = std::make_shared<PSDLayerWrapper>();
    ByteBuilder plLd;
    plLd.ascii("plcL").u32(3).pascal("id-one").zeros(16);
    addBlock(*legacy, "PlLd", plLd.bytes());

    const auto files = linkedFiles(document);
    ASSERT_EQ(files.size(), 2U);
    const auto second = smartObjectFile(document, *placed);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->fileName, "paint.psd");
    EXPECT_EQ(second->fileType, "8BPS");
    EXPECT_EQ(second->byteCount, 2U);
    EXPECT_TRUE(second->embedded);
    const auto first = smartObjectFile(document, *legacy);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->fileType, "png");
    EXPECT_EQ(V(first->data.begin(), first->data.end()), (V{0x89, 'P', 'N', 'G', 1}));
    EXPECT_FALSE(smartObjectFile(document, PSDLayerWrapper()));

    // A damaged entry ends the list: the entries before it stay.
    V damaged = links.bytes();
    damaged.resize(damaged.size() - 6);
    document.uninterpretedBlocks[0].data = PSDSharedBytes(damaged);
    EXPECT_EQ(linkedFiles(document).size(), 1U);
}

TEST(LayerTree, GroupsFromTheFlatListAndHiddenAncestors)
{
    // File order, bottom first: background, divider, child, divider, inner child, inner group
    // (hidden), outer group.
    std::vector<std::shared_ptr<PSDLayerWrapper>> layers = {
        layerOf(PSDLayerType::regular()), layerOf(PSDLayerType::sectionDivider()),
        layerOf(PSDLayerType::regular()), layerOf(PSDLayerType::sectionDivider()),
        layerOf(PSDLayerType::regular()), layerOf(PSDLayerType::group()),
        layerOf(PSDLayerType::group()),
    };
    layers[5]->visible = false;
    const PSDLayerTree tree(layers);
    ASSERT_EQ(tree.roots.size(), 2U);
    EXPECT_EQ(tree.roots[0].index, 6U);
    EXPECT_EQ(tree.roots[1].index, 0U);
    ASSERT_EQ(tree.roots[0].children.size(), 2U);
    EXPECT_EQ(tree.roots[0].children[0].index, 5U);
    EXPECT_EQ(tree.parent[4], std::optional<std::size_t>(5));
    EXPECT_EQ(tree.parent[2], std::optional<std::size_t>(6));
    EXPECT_EQ(tree.depth[4], 2);
    EXPECT_FALSE(tree.ancestorsVisible[4]);
    EXPECT_TRUE(tree.ancestorsVisible[2]);
    EXPECT_TRUE(tree.ancestorsVisible[5]);
    EXPECT_FALSE(tree.unbalanced);

    const PSDLayerTree unbalanced(
        {layerOf(PSDLayerType::sectionDivider()), layerOf(PSDLayerType::regular())});
    EXPECT_TRUE(unbalanced.unbalanced);
    EXPECT_EQ(unbalanced.roots.size(), 2U);
}

V headerBytes(std::int64_t version, std::int64_t depth, std::int64_t mode)
{
    ByteBuilder b;
    b.ascii("8BPS").i16(version).zeros(6).i16(4).i32(30).i32(40).i16(depth).i16(mode);
    return b.bytes();
}

TEST(FileHeader, ProbeDescribesRefusedFilesAndTheReaderNamesModeAndDepth)
{
    const PSDFileHeader header = probePSDFileHeader(headerBytes(2, 16, 4));
    EXPECT_TRUE(header.bigFile);
    EXPECT_EQ(header.numberOfChannels, 4);
    EXPECT_EQ(header.height, 30);
    EXPECT_EQ(header.width, 40);
    EXPECT_EQ(header.colorMode, 4);
    EXPECT_THROW((void)probePSDFileHeader(headerBytes(3, 8, 3)), PSDException);
    EXPECT_THROW((void)probePSDFileHeader(V{'8', 'B', 'P', 'S', 0, 1}), PSDException);

    V file = headerBytes(1, 16, 4);
    file.resize(file.size() + 64, 0);
    try {
        PSDWrapper document{std::span<const std::uint8_t>(file)};
        FAIL() << "a CMYK file was read";
    } catch (const PSDException& e) {
        EXPECT_EQ(e.error(), PSDError::readUnsupportedColorMode);
        EXPECT_EQ(e.detail(), "CMYK, 16 bits per channel");
        const std::string what = e.what();
        EXPECT_NE(what.find("color model"), std::string::npos) << what;
        EXPECT_NE(what.find("(readUnsupportedColorMode): CMYK, 16 bits per channel"), std::string::npos)
            << what;
    }
}

TEST(LayerContentCorpus, TextAndSmartObjectsOfRealFiles)
{
    PSDReadOptions options;
    options.keepUnknownBlocks = true;
    options.imageDecoding = PSDImageDecoding::never;
    const V textFile = testing::readCorpusFile("psdtools-text.psd");
    const PSDWrapper text(textFile, options);
    ASSERT_EQ(text.layers.size(), 2U);
    ASSERT_FALSE(text.layers[1]->uninterpretedBlocks.empty());
    EXPECT_EQ(layerContentKind(*text.layers[1]), PSDLayerContentKind::text);
    EXPECT_EQ(layerText(*text.layers[1]), std::optional<std::string>("Line 1\nLine 2\nLine 3 and text"));

    const V placedFile = testing::readCorpusFile("psdtools-placedLayer.psd");
    const PSDWrapper placed(placedFile, options);
    std::vector<std::string> names;
    for (const auto& layer : placed.layers) {
        if (layerContentKind(*layer) == PSDLayerContentKind::smartObject) {
            const auto file = smartObjectFile(placed, *layer);
            names.push_back(file ? file->fileName : "?");
        }
    }
    EXPECT_EQ(names.size(), 3U);
    for (const std::string& name : names) {
        EXPECT_NE(name, "?");
    }
}

} // namespace
} // namespace psdkit
