// Reading layer records and their channel image data: the rules real files do not show, and the
// refusals. Channel order, images and selection of real files are checked by the corpus tests.
#include <gtest/gtest.h>

#include <array>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// Extra data with an empty mask, no blending ranges, the name, and `blocks`.
std::function<void(ByteBuilder&)> extra(const std::string& name,
                                        std::function<void(ByteBuilder&)> blocks = {})
{
    return [=](ByteBuilder& b) {
        b.u32(0).u32(0).pascal(name, 4);
        if (blocks) {
            blocks(b);
        }
    };
}

const auto kEmptyChannels = [](ByteBuilder&) {};

// Record values and the blocks the reader interprets are checked on real files by the corpus tests;
// these are the rules they do not show.
TEST(LayerRecordTest, NamesPadByStoredBytesAndRepeatedBlocksKeepTheirFirstPlace)
{
    RecordFields r;
    // "Café" is five UTF-8 bytes but four Mac OS Roman bytes: the name is padded by stored bytes.
    r.extra = [](ByteBuilder& b) {
        b.u32(0).u32(0).u8(4).ascii("Caf").u8(0x8E).zeros(3);
        appendBlock(b, "luni", ByteBuilder().unicode("Unicode").zeros(2));
        appendBlock(b, "SoCo", {1, 2, 3, 4, 5});
        appendBlock(b, "SoCo", {6, 7});
        appendBlock(b, "zzzz", {1, 2, 3, 4, 5});
        appendBlock(b, "lfx2", {9, 9}, "8B64");
    };
    PSDWrapper doc(fileWithLayers({r}, kEmptyChannels));
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
    struct Case {
        std::vector<std::uint8_t> lsct;
        bool soCoFirst;
        PSDLayerType type;
        bool expanded;
        std::string blendMode;
        PSDLayerType subtype;
    };
    const Case cases[] = {
        {ByteBuilder().i32(1).ascii("8BIM").ascii("pass").i32(1), false, PSDLayerType::group(), true, "pass",
         PSDLayerType::sceneGroup()},
        {ByteBuilder().i32(2), false, PSDLayerType::group(), false, "norm", PSDLayerType::regular()},
        {ByteBuilder().i32(3), false, PSDLayerType::sectionDivider(), true, "norm", PSDLayerType::regular()},
        {ByteBuilder().i32(1), true, PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor), true,
         "norm", PSDLayerType::regular()},
        {ByteBuilder().i32(0), false, PSDLayerType::regular(), true, "norm", PSDLayerType::regular()},
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.extra = extra("", [&](ByteBuilder& b) {
            if (c.soCoFirst) {
                appendBlock(b, "SoCo", {0, 0, 0, 16});
            }
            appendBlock(b, "lsct", c.lsct);
        });
        PSDWrapper doc(fileWithLayers({r}, kEmptyChannels));
        const auto& layer = *doc.layers[0];
        EXPECT_EQ(layer.type(), c.type) << layer.type().description();
        EXPECT_EQ(layer.expanded, c.expanded);
        EXPECT_EQ(layer.blendMode.rawValue(), c.blendMode);
        EXPECT_EQ(layer.subtype, c.subtype);
    }
}

TEST(LayerRecordTest, MaskDataSizesAndParameters)
{
    // Mask data of `size` bytes: the rectangle top, left, bottom, right, then `tail`.
    struct Case {
        std::int64_t size;
        std::array<std::int32_t, 4> rect;
        V tail;
        std::error_code expected;
    };
    const Case cases[] = {
        {20, {1, 2, 1, 4}, {0, 1, 0, 0}, nothingThrown()},
        {36, {0, 0, 0, 2}, {255, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 4}, nothingThrown()},
        {28, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0, 0, 0, 0, 0, 0}, PSDError::readCorruptFile},
        {24, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0, 0}, PSDError::readCorruptFile},
        {23, {0, 0, 0, 2}, {0, 0x10, 1, 51, 0, 0, 0}, nothingThrown()},
        {20, {5, 0, 4, 2}, {0, 0, 0, 0}, PSDError::readCorruptFile},
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.extra = [&](ByteBuilder& b) {
            b.i32(c.size).i32(c.rect[0]).i32(c.rect[1]).i32(c.rect[2]).i32(c.rect[3]).raw(c.tail);
            b.u32(0).pascal("", 4);
        };
        const V file = fileWithLayers({r}, kEmptyChannels);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected) << c.size;
    }
}

// One tagged block's bytes.
V block(const std::string& key, const V& data, const std::string& signature = "8BIM")
{
    ByteBuilder b;
    appendBlock(b, key, data, signature);
    return b.bytes();
}

TEST(LayerRecordTest, MalformedBlocksFailWithTheirError)
{
    const auto corrupt = PSDError::readCorruptFile;
    const struct {
        const char* what;
        V blocks; // after an empty mask, no blending ranges and an empty name
        std::error_code expected;
    } cases[] = {
        {"section type 4", block("lsct", ByteBuilder().i32(4)), corrupt},
        {"section type -1", block("lsct", ByteBuilder().i32(-1)), corrupt},
        {"section blend signature", block("lsct", ByteBuilder().i32(1).ascii("8BIXpass")), corrupt},
        {"block signature", block("zzzz", {}, "8BIX"), corrupt},
        {"bytes too few for a block", {0, 0}, corrupt},
        {"negative Unicode name length", ByteBuilder().ascii("8BIMluni").i32(-12).zeros(8), corrupt},
        {"negative kept block length", ByteBuilder().ascii("8BIMSoCo").i32(-4).zeros(8),
         PSDError::readParameterError},
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.extra = extra("", [&](ByteBuilder& b) { b.raw(c.blocks); });
        const V file = fileWithLayers({r}, kEmptyChannels);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected) << c.what;
    }
}

TEST(LayerChannelDataTest, RefusesBoundsAndChannelsThatCannotBecomeAnImage)
{
    struct Case {
        std::int32_t bottom;
        std::vector<std::pair<std::int16_t, std::int64_t>> channels;
        std::function<void(ByteBuilder&)> data;
        std::error_code expected;
    };
    const Case cases[] = {
        {1, {{0, 3}}, [](ByteBuilder& b) { b.u16(0).u8(1); }, PSDError::readInvalidImageData},
        {1, {{0, 3}}, [](ByteBuilder& b) { b.u16(4).u8(1); }, PSDError::readUnsupportedImageCompression},
        {1, {{0, 1}}, [](ByteBuilder& b) { b.u16(0); }, PSDError::readParameterError},
        {-1, {}, [](ByteBuilder&) {}, PSDError::readCorruptFile}, // bottom above top
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.bottom = c.bottom;
        r.right = 1;
        r.channels = c.channels;
        const V file = fileWithLayers({r}, c.data);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected);
    }
}

} // namespace
} // namespace psdkit
