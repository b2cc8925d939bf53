// Serialization: layer records, image resources, the layer and mask information, the composite,
// and the values that cannot be written.
#include <gtest/gtest.h>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "psdkit/platform/support/HostApplication.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

std::shared_ptr<image::PixelBufferType> compositeFor(const PSDWrapper& doc)
{
    const auto format = image::colorPixelFormatForDepth(doc.bitDepth).value_or(image::PixelFormat::argb8);
    return image::makePixelBuffer(format, {doc.imageWidth, doc.imageHeight});
}

V serialize(PSDWrapper& doc)
{
    return doc.serializedRepresentationWithCompositeImage(compositeFor(doc).get());
}

// A 2 × 2 document with a default layer for each ID, bottom first.
PSDWrapper documentWithLayers(std::initializer_list<std::int64_t> layerIDs, bool selected = false)
{
    PSDWrapper doc;
    doc.imageWidth = doc.imageHeight = 2;
    for (const std::int64_t id : layerIDs) {
        auto layer = std::make_shared<PSDLayerWrapper>();
        layer->layerID = id;
        layer->selected = selected;
        doc.addLayerWrapper(layer);
    }
    return doc;
}

// Which compression the writer picks for a layer's content, its mask and the composite.
TEST(DocumentWritingTest, CompressionFollowsSizeAndDepth)
{
    enum Plane { content, mask, composite };
    struct Case {
        Plane plane;
        std::int64_t depth, width, height, expected;
    };
    const Case cases[] = {
        {content, 8, 8, 8, 0},   {content, 8, 9, 1, 1},   {content, 16, 8, 8, 0},   {content, 16, 9, 9, 3},
        {content, 32, 9, 9, 3},  {mask, 8, 2, 2, 0},      {mask, 8, 9, 2, 1},       {mask, 16, 2, 2, 3},
        {composite, 8, 8, 8, 0}, {composite, 8, 9, 8, 1}, {composite, 16, 9, 9, 0}, {composite, 32, 1, 20, 0},
    };
    for (const auto& c : cases) {
        const image::IntegralSize size{c.width, c.height};
        const PSDMacRect bounds(0, 0, c.height, c.width);
        PSDWrapper doc;
        doc.bitDepth = c.depth;
        doc.imageWidth = c.width;
        doc.imageHeight = c.height;
        if (c.plane == composite) {
            const V written = serialize(doc);
            PSDScanner file(written);
            file.seek(26);
            for (int section = 0; section < 3; ++section) { // colour mode data, resources, layers
                file.skip(file.scanInt32());
            }
            EXPECT_EQ(file.scanUInt16(), c.expected) << "composite " << c.depth << " " << c.width;
            continue;
        }
        PSDLayerWrapper layer(c.depth);
        if (c.plane == mask) {
            layer.hasLayerMask = true;
            layer.maskRect = bounds;
            layer.setMaskImage(image::makePixelBuffer(*image::grayPixelFormatForDepth(c.depth), size));
        } else {
            layer.contentsRect = bounds;
            layer.setContentImage(image::makePixelBuffer(*image::colorPixelFormatForDepth(c.depth), size));
        }
        PSDWriter record, data;
        layer.writeLayerRecord(record, false);
        layer.writeChannelImageData(data, false);
        PSDScanner s(data.data());
        s.seek(c.plane == mask ? 8 : 0); // a mask follows the four empty channels
        EXPECT_EQ(s.scanUInt16(), c.expected)
            << c.plane << " " << c.depth << " " << c.width << "x" << c.height;
    }
}

// Groups, dividers, masks and their parameters read back as written in the random documents of
// WriteReadPropertyTest; these are the rules they do not show.
TEST(LayerWritingTest, FillOpacityRoundsDownKeptBlocksSetTheTypeAndDeepBlendModesGoToProperties)
{
    PSDWrapper doc = documentWithLayers({0});
    doc.layers[0]->fillOpacity = 0.5;
    doc.layers[0]->taggedData.insertOrAssign(PSDFourCharCode("SoCo"), V{1, 2, 3, 4, 5});
    PSDWrapper back(serialize(doc));
    const auto& m = *back.layers[0];
    EXPECT_EQ(m.fillOpacity, 127.0 / 255.0);
    EXPECT_EQ(*m.taggedData.get(PSDFourCharCode("SoCo")), (V{1, 2, 3, 4, 5, 0, 0, 0})) << "padded to 4";
    EXPECT_EQ(m.type(), PSDLayerType::adjustmentLayer(PSDAdjustmentLayerType::solidColor));

    PSDLayerWrapper deep(32);
    deep.blendMode = "scrn";
    PSDWriter w;
    deep.writeLayerRecord(w, false);
    EXPECT_EQ(deep.blendMode, PSDFourCharCode("scrn"));
    ASSERT_TRUE(deep.propertiesDictionary().contains("PSD Blend Mode"));
    EXPECT_EQ(*deep.propertiesDictionary().at("PSD Blend Mode").asFourCharCode(), PSDFourCharCode("scrn"));
    EXPECT_EQ(V(w.data().begin() + 16 + 2 + 24 + 4, w.data().begin() + 16 + 2 + 24 + 8),
              (V{'n', 'o', 'r', 'm'}));
}

TEST(DocumentWritingTest, LayerIDRepairAndLateCompositeCheck)
{
    PSDWrapper doc = documentWithLayers({5, 5}, true);
    EXPECT_EQ(thrownError([&] { (void)doc.serializedRepresentationWithCompositeImage(nullptr); }),
              PSDError::writeParameterError);
    EXPECT_EQ(doc.layers[0]->layerID, 6);
    EXPECT_EQ(doc.layers[1]->layerID, 5);
    EXPECT_EQ(doc.minimumNewLayerID, 7);
    EXPECT_EQ(doc.selectedLayerIDs, (std::vector<std::int64_t>{6, 5}));

    PSDWrapper other = documentWithLayers({3, 0, 9});
    other.layers[1]->targeted = true;
    other.layers[2]->targeted = true;
    const V written = serialize(other);
    EXPECT_EQ(other.layers[1]->layerID, 10);
    EXPECT_EQ(firstResource(written, 1044), (V{0, 0, 0, 11}));
    EXPECT_EQ(firstResource(written, 1024), (V{0, 2}));
    EXPECT_FALSE(firstResource(written, 1069));

    PSDWrapper twice = documentWithLayers({}); // the same layer object listed twice is not a clash
    twice.addLayerWrapper(other.layers[0]);
    twice.addLayerWrapper(other.layers[0]);
    (void)serialize(twice);
    EXPECT_EQ(other.layers[0]->layerID, 3);
}

TEST(DocumentWritingTest, GeneratedResources)
{
    PSDWrapper doc = documentWithLayers({4, 7}, true);
    doc.enableLayerEffects = false;
    doc.imageResources = {{4000, "ab", {1, 2, 3}}};
    const V bytes = serialize(doc);
    EXPECT_EQ(firstResource(bytes, 1005), (V{0, 0x48, 0, 0, 0, 1, 0, 3, 0, 0x48, 0, 0, 0, 1, 0, 3}));
    EXPECT_EQ(firstResource(bytes, 1006), V(ByteBuilder().pascal("Transparency")));
    EXPECT_EQ(firstResource(bytes, 1045)->size(), 4u + 26u);
    EXPECT_EQ(firstResource(bytes, 1042), (V{0}));
    EXPECT_EQ(firstResource(bytes, 1069), (V{0, 2, 0, 0, 0, 4, 0, 0, 0, 7}));
    EXPECT_FALSE(firstResource(bytes, 1039)) << "device RGB has no profile";
    EXPECT_EQ(
        occurrences(bytes, ByteBuilder().ascii("8BIM").u16(4000).pascal("ab", 2).u32(3).raw({1, 2, 3}).u8(0)),
        1u);
}

TEST(DocumentWritingTest, BigFilesSignLargeBlocksWithLongLengths)
{
    auto host = HostApplication::current();
    host.bundleIdentifier = "io.psdkit.tests";
    HostApplication::setCurrent(host);
    PSDWrapper doc = documentWithLayers({});
    doc.bigFile = true;
    doc.patternData = V{1, 2, 3};
    doc.propertiesDictionary["answer"] = PropertyValue(42);
    const V bytes = serialize(doc);
    EXPECT_EQ(occurrences(bytes, ByteBuilder().ascii("8BIMPatt").u32(3).raw({1, 2, 3, 0})), 1u);
    EXPECT_EQ(occurrences(bytes, ByteBuilder().ascii("8B64plst").u32(0)), 1u);

    host.bundleIdentifier.reset();
    HostApplication::setCurrent(host);
    EXPECT_EQ(thrownError([&] { (void)serialize(doc); }), PSDError::writeParameterError);
}

TEST(DocumentWritingTest, ValuesThatDoNotFitAreRefused)
{
    const std::function<void(PSDWrapper&)> changes[] = {
        [](PSDWrapper& d) { d.layers[0]->opacity = 1.5; },
        [](PSDWrapper& d) { d.layers[0]->opacity = std::nan(""); },
        [](PSDWrapper& d) { d.layers[0]->fillOpacity = 1.5; },
        [](PSDWrapper& d) { d.layers[0]->fillOpacity = std::nan(""); },
        // Output the reader would refuse: bounds without their image, or with one of another size.
        [](PSDWrapper& d) { d.layers[0]->contentsRect = PSDMacRect(0, 0, 2, 2); },
        [](PSDWrapper& d) {
            d.layers[0]->contentsRect = PSDMacRect(0, 0, 2, 2);
            d.layers[0]->setContentImage(image::makePixelBuffer(image::PixelFormat::argb8, {3, 2}));
        },
        [](PSDWrapper& d) {
            d.layers[0]->hasLayerMask = true;
            d.layers[0]->maskRect = PSDMacRect(0, 0, 1, 1);
        },
        [](PSDWrapper& d) {
            d.layers[0]->uninterpretedBlocks.push_back({"8BIM", "shmd", true, PSDSharedBytes()});
        },
        [](PSDWrapper& d) {
            d.uninterpretedBlocks.push_back({"8BIX", "FMsk", false, PSDSharedBytes()});
        },
        [](PSDWrapper& d) { d.layers[0]->layerID = std::int64_t{1} << 40; },
        [](PSDWrapper& d) { d.layers[0]->colorLabel = 40000; },
        [](PSDWrapper& d) { d.layers[0]->contentsRect = PSDMacRect(0, 0, std::int64_t{1} << 33, 1); },
        [](PSDWrapper& d) { d.hRes = 70000; },
        [](PSDWrapper& d) { d.imageWidth = std::int64_t{1} << 31; },
        [](PSDWrapper& d) {
            d.layers[0]->setContentImage(image::makePixelBuffer(image::PixelFormat::argb8, {3, 3}));
        },
        [](PSDWrapper& d) {
            auto alpha = std::make_shared<PSDAlphaChannel>();
            alpha->image = image::makePixelBuffer(image::PixelFormat::gray8, {1, 1});
            d.addAlphaChannel(alpha);
        },
        [](PSDWrapper& d) {
            for (int i = 0; i < 65536; ++i) {
                d.selectedLayerIDs.push_back(i);
            }
            d.layers[0]->selected = false;
            for (int i = 0; i < 65536; ++i) {
                auto layer = std::make_shared<PSDLayerWrapper>();
                layer->layerID = i + 1;
                layer->selected = true;
                d.layers.push_back(layer);
            }
        },
    };
    for (const auto& change : changes) {
        PSDWrapper doc = documentWithLayers({0});
        const auto composite = compositeFor(doc);
        change(doc);
        EXPECT_EQ(thrownError([&] { (void)doc.serializedRepresentationWithCompositeImage(composite.get()); }),
                  PSDError::writeParameterError);
    }
}

TEST(DocumentWritingTest, RefusalsNameTheLayerBeforeAnyByteIsWritten)
{
    PSDWrapper doc = documentWithLayers({0, 0});
    doc.layers[1]->name = "Ink";
    doc.layers[1]->contentsRect = PSDMacRect(0, 0, 1, 1);
    try {
        (void)serialize(doc);
        ADD_FAILURE() << "written";
    } catch (const PSDException& error) {
        EXPECT_EQ(error.error(), PSDError::writeParameterError);
        EXPECT_NE(error.detail().find("layer 1 \"Ink\""), std::string::npos) << error.detail();
    }
    EXPECT_EQ(doc.layers[0]->layerID, 0) << "refused before the layer IDs are repaired";
}

TEST(DocumentWritingTest, KeptBlocksGoBackAfterTheGeneratedOnesAndNeverTwice)
{
    PSDWrapper doc = documentWithLayers({0});
    doc.layers[0]->uninterpretedBlocks = {{"8BIM", "shmd", false, PSDSharedBytes(V{1, 2, 3})},
                                          {"8BIM", "luni", false, PSDSharedBytes(V{0, 0, 0, 0})}};
    doc.uninterpretedBlocks = {{"8BIM", "Pat2", false, PSDSharedBytes(V{9})},
                               {"8BIM", "Lr16", false, PSDSharedBytes(V{0, 0})}};
    doc.patternData = V{9};
    const V bytes = serialize(doc);
    const auto count = [&](const V& needle) { return occurrences(bytes, needle); };
    EXPECT_EQ(count(ByteBuilder().ascii("8BIMshmd").u32(3).raw({1, 2, 3, 0})), 1u)
        << "length as read, padded to even";
    EXPECT_EQ(count(ByteBuilder().ascii("8BIMluni")), 1u);
    EXPECT_EQ(count(ByteBuilder().ascii("8BIMPat2").u32(1).raw({9, 0, 0, 0})), 1u)
        << "the pattern keeps its key";
    EXPECT_EQ(count(ByteBuilder().ascii("8BIMPatt")), 0u);
    EXPECT_EQ(count(ByteBuilder().ascii("8BIMLr16")), 0u);

    doc.patternData = V{8}; // a host edit: the kept pattern blocks no longer stand for it
    const V edited = serialize(doc);
    EXPECT_EQ(occurrences(edited, ByteBuilder().ascii("8BIMPatt").u32(1).raw({8, 0, 0, 0})), 1u);
    EXPECT_EQ(occurrences(edited, ByteBuilder().ascii("8BIMPat2")), 0u);
}

} // namespace
} // namespace psdkit
