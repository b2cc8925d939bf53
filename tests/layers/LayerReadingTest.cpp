// Reading layer records and their channel image data.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
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

TEST(LayerRecordTest, ReadsRecordValuesAndBlocks)
{
    RecordFields r;
    r.blendMode = "mul ";
    r.opacity = 128;
    r.clipping = 1;
    r.flags = 0x1B; // locked, hidden, bit 4 meaningful and set
    // "Café" is five UTF-8 bytes but four Mac OS Roman bytes: the name is padded by stored bytes.
    r.extra = [](ByteBuilder& b) {
        b.u32(0).u32(0).u8(4).ascii("Caf").u8(0x8E).zeros(3);
        appendBlock(b, "lyid", ByteBuilder().i32(42));
        appendBlock(b, "lclr", ByteBuilder().i16(3).zeros(6));
        appendBlock(b, "iOpa", ByteBuilder().u8(51).zeros(3));
        appendBlock(b, "luni", ByteBuilder().unicode("Unicode").zeros(2));
        appendBlock(b, "SoCo", {1, 2, 3, 4, 5});
        appendBlock(b, "SoCo", {6, 7});
        appendBlock(b, "zzzz", {1, 2, 3, 4, 5});
        appendBlock(b, "lfx2", {9, 9}, "8B64");
    };
    const std::vector<RecordFields> records{r};
    PSDWrapper doc(fileWithLayers(1, records, kEmptyChannels));
    ASSERT_EQ(doc.layers.size(), 1u);
    const auto& layer = *doc.layers[0];
    EXPECT_EQ(layer.name, "Unicode");
    EXPECT_EQ(layer.blendMode, PSDFourCharCode("mul "));
    EXPECT_DOUBLE_EQ(layer.opacity, 128.0 / 255.0);
    EXPECT_DOUBLE_EQ(layer.fillOpacity, 0.2);
    EXPECT_TRUE(layer.clipping);
    EXPECT_FALSE(layer.visible);
    EXPECT_EQ(layer.lockFlags, 1);
    EXPECT_EQ(layer.layerID, 42);
    EXPECT_EQ(layer.colorLabel, 3);
    EXPECT_EQ(layer.type(), PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor));
    EXPECT_TRUE(layer.pixelDataIrrelevantToAppearanceOfDocument);
    ASSERT_EQ(layer.taggedData.size(), 2u);
    EXPECT_EQ(*layer.taggedData.get(PSDFourCharCode("SoCo")), (V{6, 7}));
    EXPECT_EQ(layer.taggedData.begin()->first, PSDFourCharCode("SoCo")) << "kept blocks stay in file order";
    EXPECT_EQ(*layer.taggedData.get(PSDFourCharCode("lfx2")), (V{9, 9}));
    EXPECT_FALSE(layer.hasLayerMask);
    EXPECT_FALSE(layer.layerBlendingRanges);
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
        PSDWrapper doc(fileWithLayers(1, {r}, kEmptyChannels));
        const auto& layer = *doc.layers[0];
        EXPECT_EQ(layer.type(), c.type) << layer.type().description();
        EXPECT_EQ(layer.expanded, c.expanded);
        EXPECT_EQ(layer.blendMode.rawValue(), c.blendMode);
        EXPECT_EQ(layer.subtype, c.subtype);
    }
    for (const auto& bad : {V(ByteBuilder().i32(4)), V(ByteBuilder().i32(-1)),
                            V(ByteBuilder().i32(1).ascii("8BIX").ascii("pass"))}) {
        RecordFields r;
        r.extra = extra("", [&](ByteBuilder& b) { appendBlock(b, "lsct", bad); });
        EXPECT_EQ(thrownError([&] { PSDWrapper d(fileWithLayers(1, {r}, kEmptyChannels)); }),
                  PSDError::readCorruptFile);
    }
}

TEST(LayerRecordTest, MaskDataSizesAndParameters)
{
    struct Case {
        std::int64_t size;
        std::function<void(ByteBuilder&)> body;
        std::error_code expected; // nothingThrown(): reads
    };
    const auto plain = [](ByteBuilder& b) { b.i32(1).i32(2).i32(1).i32(4).u8(0).u8(0x01); };
    const Case cases[] = {
        {20,
         [=](ByteBuilder& b) {
             plain(b);
             b.zeros(2);
         },
         testing::nothingThrown()},
        {36,
         [](ByteBuilder& b) {
             b.i32(0).i32(0).i32(0).i32(2).u8(255).u8(0).u8(0x02).u8(0).i32(0).i32(0).i32(4).i32(4);
         },
         testing::nothingThrown()},
        {28, [](ByteBuilder& b) { b.i32(0).i32(0).i32(0).i32(2).u8(0).u8(0x10).u8(0x01).u8(51).zeros(8); },
         PSDError::readCorruptFile},
        {24, [](ByteBuilder& b) { b.i32(0).i32(0).i32(0).i32(2).u8(0).u8(0x10).u8(0x01).u8(51).zeros(4); },
         PSDError::readCorruptFile},
        {23, [](ByteBuilder& b) { b.i32(0).i32(0).i32(0).i32(2).u8(0).u8(0x10).u8(0x01).u8(51).zeros(3); },
         testing::nothingThrown()},
        {20, [](ByteBuilder& b) { b.i32(5).i32(0).i32(4).i32(2).u8(0).u8(0).zeros(2); },
         PSDError::readCorruptFile},
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.extra = [&](ByteBuilder& b) {
            b.i32(c.size);
            c.body(b);
            b.u32(0).pascal("", 4);
        };
        const V file = fileWithLayers(1, {r}, kEmptyChannels);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected) << c.size;
    }
    RecordFields r;
    r.extra = [](ByteBuilder& b) {
        b.i32(36).i32(0).i32(0).i32(0).i32(2).u8(255).u8(0x02).u8(0x09).u8(0).i32(0).i32(0).i32(4).i32(4);
        b.u32(4).raw({1, 2, 3, 4}).pascal("", 4);
    };
    PSDWrapper doc(fileWithLayers(1, {r}, kEmptyChannels));
    const auto& layer = *doc.layers[0];
    EXPECT_TRUE(layer.hasLayerMask);
    EXPECT_TRUE(layer.maskDisabled);
    EXPECT_TRUE(layer.hasRealFlags);
    EXPECT_TRUE(layer.realMaskIsPositionedRelativeToLayer);
    EXPECT_TRUE(layer.realMaskCameFromRenderingOtherData);
    EXPECT_EQ(layer.realMaskRect, PSDMacRect(0, 0, 4, 4));
    EXPECT_EQ(layer.maskDefaultColor, 1.0);
    EXPECT_EQ(layer.layerBlendingRanges, (V{1, 2, 3, 4}));
}

TEST(LayerRecordTest, MalformedRecordsFailWithTheirError)
{
    struct Case {
        std::function<void(RecordFields&)> change;
        std::error_code expected;
    };
    const Case cases[] = {
        {[](RecordFields& r) {
             r.extra = extra("", [](ByteBuilder& b) { appendBlock(b, "zzzz", {}, "8BIX"); });
         },
         PSDError::readCorruptFile},
        {[](RecordFields& r) { r.extra = [](ByteBuilder& b) { b.u32(0).u32(0).pascal("", 4).zeros(2); }; },
         PSDError::readCorruptFile},
        {[](RecordFields& r) {
             r.extra = extra("", [](ByteBuilder& b) { b.ascii("8BIM").ascii("luni").i32(-12).zeros(8); });
         },
         PSDError::readCorruptFile},
        {[](RecordFields& r) {
             r.extra = extra("", [](ByteBuilder& b) { b.ascii("8BIM").ascii("SoCo").i32(-4).zeros(8); });
         },
         PSDError::readParameterError},
        {[](RecordFields& r) {
             r.top = 5;
             r.bottom = 4;
         },
         PSDError::readCorruptFile},
    };
    for (const auto& c : cases) {
        RecordFields r;
        c.change(r);
        const V file = fileWithLayers(1, {r}, kEmptyChannels);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected);
    }
}

TEST(LayerChannelDataTest, SortsChannelsAndBuildsContentAndMaskImages)
{
    RecordFields r;
    r.bottom = 1;
    r.right = 2;
    r.channels = {{0, 4}, {-1, 4}, {2, 4}, {1, 4}, {-2, 2 + 2 + 2}};
    r.extra = [](ByteBuilder& b) {
        b.i32(20).i32(0).i32(0).i32(2).i32(1).u8(0).u8(0).zeros(2);
        b.u32(0).pascal("", 4);
    };
    const auto channels = [](ByteBuilder& b) {
        b.u16(0).raw({1, 2});   // red
        b.u16(0).raw({7, 8});   // transparency
        b.u16(0).raw({5, 6});   // blue
        b.u16(0).raw({3, 4});   // green
        b.u16(1).i16(2).i16(2); // mask: RLE over maskRect's two rows...
    };
    // The mask is RLE with two rows of two bytes each: fix its length accordingly.
    r.channels.back().second = 2 + 2 * 2 + 4;
    const auto channelsWithMask = [=](ByteBuilder& b) {
        channels(b);
        b.raw({0x00, 9, 0x00, 10});
    };
    PSDWrapper doc(fileWithLayers(1, {r}, channelsWithMask));
    const auto& layer = *doc.layers[0];
    std::vector<std::int64_t> order;
    for (const auto& c : layer.channelInfo) {
        order.push_back(std::get<std::int64_t>(c.properties.at("channelID")));
    }
    EXPECT_EQ(order, (std::vector<std::int64_t>{-2, -1, 0, 1, 2}));
    ASSERT_TRUE(layer.contentImage());
    const auto* px = reinterpret_cast<const image::PixelARGB8*>(layer.contentImage()->bytes().data());
    EXPECT_EQ(px[1].a, 8);
    EXPECT_EQ(px[1].r, 2);
    EXPECT_EQ(px[1].g, 4);
    EXPECT_EQ(px[1].b, 6);
    V rgba(8);
    ASSERT_TRUE(layer.copyContentImageRGBA(rgba));
    EXPECT_EQ(rgba, (V{1, 3, 5, 7, 2, 4, 6, 8}));
    EXPECT_EQ(thrownError([&] { (void)layer.copyContentImageRGBA(std::span(rgba).first(7)); }),
              image::ImageError::rawSizeMismatch);
    ASSERT_TRUE(layer.maskImage());
    EXPECT_EQ(layer.maskImage()->size(), (image::IntegralSize{1, 2}));
    EXPECT_EQ(layer.maskImage()->bytes()[1], 10);
}

TEST(LayerChannelDataTest, RefusesWhatCannotBecomeAnImage)
{
    struct Case {
        std::vector<std::pair<std::int16_t, std::int64_t>> channels;
        std::function<void(ByteBuilder&)> data;
        std::error_code expected;
    };
    const Case cases[] = {
        {{{0, 3}}, [](ByteBuilder& b) { b.u16(0).u8(1); }, PSDError::readInvalidImageData},
        {{{0, 3}}, [](ByteBuilder& b) { b.u16(4).u8(1); }, PSDError::readUnsupportedImageCompression},
        {{{0, 1}}, [](ByteBuilder& b) { b.u16(0); }, PSDError::readParameterError},
    };
    for (const auto& c : cases) {
        RecordFields r;
        r.bottom = 1;
        r.right = 1;
        r.channels = c.channels;
        const V file = fileWithLayers(1, {r}, c.data);
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file); }), c.expected);
    }
}

TEST(LayerChannelDataTest, EmptyBoundsAndBigFileEntries)
{
    RecordFields r;
    r.big = true;
    r.channels = {{0, 2}, {1, 2}, {2, 2}, {-1, 2}};
    PSDWrapper doc(fileWithLayers(
        -1, {r}, [](ByteBuilder& b) { b.u16(0).u16(0).u16(0).u16(0); }, HeaderFields{.version = 2}));
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_TRUE(doc.compositeImageHasAlphaChannel);
    EXPECT_FALSE(doc.layers[0]->contentImage());
    EXPECT_EQ(doc.layers[0]->channelInfo.size(), 4u);
}

TEST(LayerSelectionTest, SelectedIDsMarkEveryMatchingLayer)
{
    FileSections s;
    s.resources = [](ByteBuilder& b) {
        b.begin();
        appendResource(b, 1069, ByteBuilder().u16(1).i32(7));
        b.end();
    };
    RecordFields r;
    r.extra = extra("", [](ByteBuilder& b) { appendBlock(b, "lyid", ByteBuilder().i32(7)); });
    RecordFields other;
    s.layersAndMasks = [=](ByteBuilder& b) {
        b.begin().begin().i16(3);
        appendRecord(b, r);
        appendRecord(b, r);
        appendRecord(b, other);
        b.end().u32(0).end();
    };
    PSDWrapper doc(buildFile(s));
    ASSERT_EQ(doc.layers.size(), 3u);
    EXPECT_TRUE(doc.layers[0]->selected);
    EXPECT_TRUE(doc.layers[1]->selected);
    EXPECT_FALSE(doc.layers[2]->selected);
    EXPECT_FALSE(doc.compositeImageHasAlphaChannel);
}

} // namespace
} // namespace psdkit
