// What a layer holds as a user knows it: kinds, text, placed files and the layer tree, on synthetic
// layers (their blocks in `uninterpretedBlocks`, as reading with `keepUnknownBlocks` leaves them).
// Real files' kinds, texts, placed files and trees are checked by the tool's golden output.
#include <gtest/gtest.h>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/document/PSDLinkedFiles.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"
#include "psdkit/layers/PSDLayerTree.hpp"
#include "support/ByteBuilder.hpp"

namespace psdkit {
namespace {
using psdkit::testing::ByteBuilder;
using V = std::vector<std::uint8_t>;

void addBlock(PSDLayerWrapper& layer, const std::string& key, V body)
{
    layer.uninterpretedBlocks.push_back(
        PSDRawBlock{"8BIM", PSDFourCharCode(key), false, PSDSharedBytes(std::move(body))});
}

std::shared_ptr<PSDLayerWrapper> layerOf(PSDLayerType type, const std::vector<std::string>& blockKeys = {})
{
    auto layer = std::make_shared<PSDLayerWrapper>();
    layer->setType(type);
    for (const std::string& key : blockKeys) {
        addBlock(*layer, key, V{0, 0});
    }
    return layer;
}

// A type layer's block holding `text` in its text descriptor.
V textBlock(const std::string& text)
{
    PSDDescriptor descriptor;
    descriptor.set(PSDFourCharCode("Txt "), PSDDescriptorPropertyValue(text));
    return ByteBuilder().u16(1).zeros(6 * 8).u16(50).raw(descriptor.data()).bytes();
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

TEST(LinkedFiles, SmartObjectLayersFindTheirEmbeddedFileAndADamagedEntryEndsTheList)
{
    PSDWrapper document;
    ByteBuilder links;
    appendEmbeddedEntry(links, "id-one", "photo.png", "png ", V{0x89, 'P', 'N', 'G', 1});
    appendEmbeddedEntry(links, "id-two", "paint.psd", "8BPS", V{7, 7});
    document.uninterpretedBlocks.push_back(
        PSDRawBlock{PSDFourCharCode("8BIM"), "lnk2", false, PSDSharedBytes(links.bytes())});
    auto legacy = std::make_shared<PSDLayerWrapper>();
    addBlock(*legacy, "PlLd", ByteBuilder().ascii("plcL").u32(3).pascal("id-one").zeros(16));
    const auto file = smartObjectFile(document, *legacy);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->fileType, "png");
    EXPECT_EQ(V(file->data.begin(), file->data.end()), (V{0x89, 'P', 'N', 'G', 1}));

    V damaged = links.bytes();
    damaged.resize(damaged.size() - 6);
    document.uninterpretedBlocks[0].data = PSDSharedBytes(damaged);
    EXPECT_EQ(linkedFiles(document).size(), 1U);
}

TEST(LayerTree, HiddenAncestorsAndUnbalancedDividers)
{
    // File order, bottom first: divider, inner child, inner group (hidden), outer group.
    std::vector<std::shared_ptr<PSDLayerWrapper>> layers = {
        layerOf(PSDLayerType::sectionDivider()), layerOf(PSDLayerType::sectionDivider()),
        layerOf(PSDLayerType::regular()), layerOf(PSDLayerType::group()), layerOf(PSDLayerType::group())};
    layers[3]->visible = false;
    const PSDLayerTree tree(layers);
    EXPECT_EQ(tree.parent[2], std::optional<std::size_t>(3));
    EXPECT_EQ(tree.depth[2], 2);
    EXPECT_FALSE(tree.ancestorsVisible[2]);
    EXPECT_TRUE(tree.ancestorsVisible[3]);
    EXPECT_FALSE(tree.unbalanced);
    EXPECT_TRUE(
        PSDLayerTree({layerOf(PSDLayerType::sectionDivider()), layerOf(PSDLayerType::regular())}).unbalanced);
}

} // namespace
} // namespace psdkit
