// Layers: reading records and their channel image data (the rules real files do not show, and the
// refusals; record values, channel order, images and selection of real files are checked by the
// corpus tests), and what a layer holds as a user knows it.
#include <gtest/gtest.h>

#include <array>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/document/PSDLinkedFiles.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"
#include "psdkit/layers/PSDLayerTree.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// One tagged block's bytes, its length not padded (odd lengths get one pad byte after the data).
V block(const std::string& key, const V& data, const std::string& signature = "8BIM")
{
    ByteBuilder b;
    b.ascii(signature).ascii(key).begin(signature == "8B64").raw(data).end();
    return b.zeros(data.size() % 2);
}

// Extra data of a record: no mask, no blending ranges, an empty name, then `blocks`.
V withBlocks(const V& blocks)
{
    return ByteBuilder().u32(0).u32(0).pascal("", 4).raw(blocks);
}

// Extra data of a record whose mask data is `size` bytes: the rectangle, then `tail`.
V withMask(std::int64_t size, std::array<std::int32_t, 4> rect, const V& tail)
{
    ByteBuilder b;
    b.i32(size);
    for (const std::int32_t side : rect) {
        b.i32(side);
    }
    return b.raw(tail).u32(0).pascal("", 4);
}

// A file of one layer record of the given extra data; with channels (id, stored bytes), the record
// is one pixel tall (`bottom`) and wide.
V layerFile(const V& extraData, std::vector<std::pair<std::int16_t, V>> channels = {},
            std::int32_t bottom = 0)
{
    RecordFields r{.bottom = bottom, .right = bottom == 0 ? 0 : 1, .channels = std::move(channels)};
    r.extra = [&](ByteBuilder& b) { b.raw(extraData); };
    return fileWithLayers({r});
}

TEST(LayerRecordTest, NamesPadByStoredBytesAndRepeatedBlocksKeepTheirFirstPlace)
{
    // "Café" is five UTF-8 bytes but four Mac OS Roman bytes: the name is padded by stored bytes.
    ByteBuilder extra;
    extra.u32(0).u32(0).u8(4).ascii("Caf").u8(0x8E).zeros(3);
    extra.raw(block("luni", ByteBuilder().unicode("Unicode").zeros(2))).raw(block("SoCo", {1, 2, 3, 4, 5}));
    extra.raw(block("SoCo", {6, 7})).raw(block("zzzz", {1, 2, 3, 4, 5})).raw(block("lfx2", {9, 9}, "8B64"));
    PSDWrapper doc(layerFile(extra));
    const auto& layer = *doc.layers.at(0);
    EXPECT_EQ(layer.name, "Unicode");
    EXPECT_EQ(layer.type(), PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor));
    ASSERT_EQ(layer.taggedData.size(), 2u);
    EXPECT_EQ(*layer.taggedData.get(PSDFourCharCode("SoCo")), (V{6, 7}));
    EXPECT_EQ(layer.taggedData.begin()->first, PSDFourCharCode("SoCo")) << "kept blocks stay in file order";
    EXPECT_EQ(*layer.taggedData.get(PSDFourCharCode("lfx2")), (V{9, 9}));
}

TEST(LayerRecordTest, SectionDividerSettings)
{
    const auto regular = PSDLayerType::regular();
    const struct {
        V blocks;
        PSDLayerType type;
        bool expanded;
        std::string blendMode;
        PSDLayerType subtype;
    } cases[] = {
        {block("lsct", ByteBuilder().i32(1).ascii("8BIMpass").i32(1)), PSDLayerType::group(), true, "pass",
         PSDLayerType::sceneGroup()},
        {block("lsct", ByteBuilder().i32(2)), PSDLayerType::group(), false, "norm", regular},
        {block("lsct", ByteBuilder().i32(3)), PSDLayerType::sectionDivider(), true, "norm", regular},
        {ByteBuilder().raw(block("SoCo", {0, 0, 0, 16})).raw(block("lsct", ByteBuilder().i32(1))),
         PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor), true, "norm", regular},
        {block("lsct", ByteBuilder().i32(0)), regular, true, "norm", regular},
    };
    for (const auto& c : cases) {
        PSDWrapper doc(layerFile(withBlocks(c.blocks)));
        const auto& layer = *doc.layers[0];
        EXPECT_EQ(layer.type(), c.type) << layer.type().description();
        EXPECT_EQ(layer.expanded, c.expanded);
        EXPECT_EQ(layer.blendMode.rawValue(), c.blendMode);
        EXPECT_EQ(layer.subtype, c.subtype);
    }
}

TEST(LayerRecordTest, MalformedRecordsFailWithTheirErrorAndMaskSizesAsRead)
{
    const auto corrupt = PSDError::readCorruptFile;
    const auto pass = nothingThrown();
    const struct {
        const char* what;
        V file;
        std::error_code expected;
    } cases[] = {
        {"mask of 20 bytes", layerFile(withMask(20, {1, 2, 1, 4}, {0, 1, 0, 0})), pass},
        {"mask of 36 bytes", layerFile(withMask(36, {0, 0, 0, 2}, {255, 0, 2, 0, 0, 0, 0, 0, 0, 0,
                                                                   0,   0, 0, 0, 0, 4, 0, 0, 0, 4})),
         pass},
        {"mask of 28 bytes", layerFile(withMask(28, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0, 0, 0, 0, 0, 0})),
         corrupt},
        {"mask of 24 bytes", layerFile(withMask(24, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0, 0})), corrupt},
        {"mask of 23 bytes", layerFile(withMask(23, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0})), pass},
        {"inverted mask", layerFile(withMask(20, {5, 0, 4, 2}, {0, 0, 0, 0})), corrupt},
        {"section type 4", layerFile(withBlocks(block("lsct", ByteBuilder().i32(4)))), corrupt},
        {"section type -1", layerFile(withBlocks(block("lsct", ByteBuilder().i32(-1)))), corrupt},
        {"section blend signature",
         layerFile(withBlocks(block("lsct", ByteBuilder().i32(1).ascii("8BIXpass")))), corrupt},
        {"block signature", layerFile(withBlocks(block("zzzz", {}, "8BIX"))), corrupt},
        {"bytes too few for a block", layerFile(withBlocks({0, 0})), corrupt},
        {"negative Unicode name length",
         layerFile(withBlocks(ByteBuilder().ascii("8BIMluni").i32(-12).zeros(8))), corrupt},
        {"negative kept block length",
         layerFile(withBlocks(ByteBuilder().ascii("8BIMSoCo").i32(-4).zeros(8))),
         PSDError::readParameterError},
        {"inverted bounds", layerFile(withBlocks({}), {}, -1), corrupt},
        {"one colour channel", layerFile(withBlocks({}), {{0, {0, 0, 1}}}, 1),
         PSDError::readInvalidImageData},
        {"compression 4", layerFile(withBlocks({}), {{0, {0, 4, 1}}}, 1),
         PSDError::readUnsupportedImageCompression},
        {"channel shorter than its compression code", layerFile(withBlocks({}), {{0, {0}}}, 1),
         PSDError::readParameterError},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(thrownError([&] { PSDWrapper d(c.file); }), c.expected) << c.what;
    }
}

// What a layer holds as a user knows it: kinds, text, placed files and the layer tree, on synthetic
// layers (their blocks in `uninterpretedBlocks`, as reading with `keepUnknownBlocks` leaves them).
// Real files' kinds, texts, placed files (smart objects finding their embedded file) and trees are
// checked by the tool's golden output.

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
        {PSDLayerType::regular(), {"vmsk"}, K::pixel}, // a pixel layer with a vector mask
        {PSDLayerType::regular(), {"PlLd"}, K::smartObject},
        {PSDLayerType::regular(), {"vogk"}, K::shape},
        {solid, {"vsms"}, K::shape},
        {levels, {}, K::adjustment},
        {levels, {"vmsk"}, K::adjustment},
        {PSDLayerType::sceneGroup(), {}, K::group},
        {PSDLayerType::artboard(), {}, K::artboard},
        {PSDLayerType::sectionDivider(), {"TySh"}, K::groupEnd},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(layerContentKind(*layerOf(c.type, c.keys)), c.expected)
            << c.type.description() << " " << (c.keys.empty() ? "" : c.keys[0]);
    }
}

// A held image copied out in RGBA order; a pending one is compared with it over the corpus.
TEST(LayerPixels, CopiedOutInRGBAOrderIntoMemoryOfTheirSize)
{
    PSDLayerWrapper layer;
    EXPECT_FALSE(layer.copyContentImageRGBA({})) << "no content image";
    auto image = std::make_shared<image::PixelBuffer<image::PixelARGB8>>(image::IntegralSize{2, 1});
    image->mutableBytes()[0] = 7; // memory order a, r, g, b
    image->mutableBytes()[5] = 2;
    layer.contentsRect = PSDMacRect(0, 0, 1, 2);
    layer.setContentImage(image);
    V rgba(8);
    ASSERT_TRUE(layer.copyContentImageRGBA(rgba));
    EXPECT_EQ(rgba, (V{0, 0, 0, 7, 2, 0, 0, 0}));
    EXPECT_EQ(thrownError([&] { (void)layer.copyContentImageRGBA(std::span(rgba).first(7)); }),
              image::ImageError::rawSizeMismatch);
}

TEST(LayerText, ReadsTheStringOfTheTextDescriptorAndNothingOfADamagedOne)
{
    V bytes = textBlock("Hello\rWorld \xD0\xA4\xD0\xBE\xD0\xBD");
    PSDLayerWrapper layer;
    addBlock(layer, "TySh", bytes);
    EXPECT_EQ(layerText(layer), std::optional<std::string>("Hello\nWorld \xD0\xA4\xD0\xBE\xD0\xBD"));
    bytes.resize(bytes.size() - 3);
    layer.uninterpretedBlocks[0].data = PSDSharedBytes(bytes);
    EXPECT_EQ(layerText(layer), std::nullopt);
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

TEST(LinkedFiles, ADamagedEntryEndsTheList)
{
    PSDWrapper document;
    ByteBuilder links;
    appendEmbeddedEntry(links, "id-one", "photo.png", "png ", V{0x89, 'P', 'N', 'G', 1});
    appendEmbeddedEntry(links, "id-two", "paint.psd", "8BPS", V{7, 7});
    document.uninterpretedBlocks.push_back(
        PSDRawBlock{PSDFourCharCode("8BIM"), "lnk2", false, PSDSharedBytes(links.bytes())});
    ASSERT_EQ(linkedFiles(document).size(), 2U);
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
