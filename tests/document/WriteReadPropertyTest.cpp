// Thousands of random documents from a fixed seed, each written, read back (keeping every block)
// and compared field by field and pixel by pixel: whatever the writer accepts, the reader reads back
// as it was. Depths 8/16/32, PSD and PSB, groups nested three deep, masks with parameters, empty and
// off-canvas layers, odd sizes, alpha channels and kept raw blocks at both levels.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"
#include "support/DocumentExpectations.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;

class RandomDocuments {
  public:
    explicit RandomDocuments(std::uint32_t seed) : random_(seed) {}

    std::int64_t between(std::int64_t low, std::int64_t high)
    {
        return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
    }
    std::size_t pick(std::size_t count)
    {
        return static_cast<std::size_t>(between(0, static_cast<std::int64_t>(count) - 1));
    }
    bool chance(int percent) { return between(0, 99) < percent; }
    double fraction() { return static_cast<double>(between(0, 255)) / 255.0; }

    // A buffer of random samples in `format`: float samples stay in 0…1, transparency is opaque when asked.
    std::shared_ptr<image::PixelBufferType> image(image::PixelFormat format, image::IntegralSize size,
                                                  bool opaque = false)
    {
        auto buffer = image::makePixelBuffer(format, size);
        const auto bytes = buffer->mutableBytes();
        const std::size_t sampleBytes = image::bytesPerSample(image::sampleType(format));
        const std::size_t pixelBytes = image::bytesPerPixel(format);
        for (std::size_t at = 0; at < bytes.size(); at += sampleBytes) {
            const bool alpha = image::channelCount(format) == 4 &&
                               at % pixelBytes == image::memorySlot(format, 3) * sampleBytes;
            const float sample = opaque && alpha ? 1.0F : static_cast<float>(between(0, 1000)) / 1000.0F;
            for (std::size_t i = 0; i < sampleBytes; ++i) {
                bytes[at + i] = opaque && alpha ? 0xFF : static_cast<std::uint8_t>(between(0, 255));
            }
            if (sampleBytes == 4) {
                std::memcpy(&bytes[at], &sample, sizeof sample);
            }
        }
        return buffer;
    }
    std::shared_ptr<image::PixelBufferType> colorImage(std::int64_t depth, image::IntegralSize size,
                                                       bool opaque = false)
    {
        return image(*image::colorPixelFormatForDepth(depth), size, opaque);
    }

    // Bounds that may be empty, lie partly or wholly off the canvas, and have odd sizes.
    PSDMacRect bounds(const PSDWrapper& doc)
    {
        PSDMacRect rect;
        rect.top = between(-6, doc.imageHeight + 3);
        rect.left = between(-6, doc.imageWidth + 3);
        rect.bottom = rect.top + (chance(15) ? 0 : between(1, 9));
        rect.right = rect.left + (chance(10) ? 0 : between(1, 9));
        return rect;
    }

    std::vector<PSDRawBlock> keptBlocks(bool allowLong, const std::vector<const char*>& keys)
    {
        std::vector<PSDRawBlock> blocks;
        for (std::int64_t n = between(0, 2); n > 0; --n) {
            PSDRawBlock block;
            block.key = PSDFourCharCode(std::string(keys[pick(keys.size())]));
            block.longLength = allowLong && chance(30);
            block.signature = block.longLength ? "8B64" : "8BIM";
            std::vector<std::uint8_t> data(static_cast<std::size_t>(between(0, 9)));
            for (auto& byte : data) {
                byte = static_cast<std::uint8_t>(between(0, 255));
            }
            block.data = PSDSharedBytes(std::move(data));
            blocks.push_back(std::move(block));
        }
        return blocks;
    }

    std::shared_ptr<PSDLayerWrapper> pixelLayer(const PSDWrapper& doc)
    {
        auto layer = std::make_shared<PSDLayerWrapper>(doc.bitDepth);
        fillRecord(*layer, {"norm", "mul ", "scrn", "diss", "lbrn"});
        layer->contentsRect = bounds(doc);
        if (!layer->contentsRect.isEmpty()) {
            layer->setContentImage(colorImage(doc.bitDepth, layer->contentsRect.size()));
        }
        layer->pixelDataIrrelevantToAppearanceOfDocument = chance(20);
        if (chance(40)) {
            addMask(*layer, doc);
        }
        if (chance(20)) {
            // Read with every block kept, a raw model block leaves a copy that marks its place.
            const std::vector<std::uint8_t> effects(static_cast<std::size_t>(4 * between(0, 2)), 7);
            layer->taggedData.insertOrAssign(PSDFourCharCode("lfx2"), effects);
            layer->uninterpretedBlocks.insert(
                layer->uninterpretedBlocks.begin(),
                PSDRawBlock{PSDFourCharCode("8BIM"), "lfx2", false, PSDSharedBytes(effects)});
        }
        return layer;
    }

    // A group of `depth` levels at most, appended bottom first: its closing divider, its content,
    // then its opening record.
    void appendGroup(PSDWrapper& doc, int depth)
    {
        doc.addSectionDivider();
        for (std::int64_t n = between(0, 3); n > 0; --n) {
            if (depth > 1 && chance(30)) {
                appendGroup(doc, depth - 1);
            } else {
                doc.addLayerWrapper(pixelLayer(doc));
            }
        }
        auto group = std::make_shared<PSDLayerWrapper>(doc.bitDepth);
        fillRecord(*group, {"pass", "norm", "mul "});
        group->setType(PSDLayerType::group());
        group->expanded = chance(50);
        doc.addLayerWrapper(group);
    }

    PSDWrapper document()
    {
        PSDWrapper doc;
        static constexpr std::int64_t kDepths[] = {8, 16, 32};
        doc.bitDepth = kDepths[between(0, 2)];
        doc.bigFile = chance(30);
        doc.imageWidth = between(1, 13);
        doc.imageHeight = between(1, 13);
        for (std::int64_t n = chance(25) ? 0 : between(1, 4); n > 0; --n) {
            if (chance(30)) {
                appendGroup(doc, 3);
            } else {
                doc.addLayerWrapper(pixelLayer(doc));
            }
        }
        for (std::int64_t n = chance(70) ? 0 : between(1, 2); n > 0; --n) {
            auto alpha = std::make_shared<PSDAlphaChannel>();
            alpha->name = "Alpha " + std::to_string(n);
            alpha->image =
                image(*image::grayPixelFormatForDepth(doc.bitDepth), {doc.imageWidth, doc.imageHeight});
            doc.addAlphaChannel(alpha);
        }
        doc.uninterpretedBlocks = keptBlocks(doc.bigFile, {"FMsk", "Txt2", "cinf", "Pat2"});
        for (const auto& block : doc.uninterpretedBlocks) {
            if (block.key == PSDFourCharCode("Pat2")) {
                doc.patternData = block.data.toVector(); // the kept pattern block stands for patternData
            }
        }
        return doc;
    }

  private:
    void fillRecord(PSDLayerWrapper& layer, const std::vector<const char*>& modes)
    {
        static const char* const kNames[] = {"", "a", "Layer 1", "odd name", "caf\xC3\xA9"};
        layer.name = kNames[between(0, 4)];
        layer.layerID = chance(20) ? 0 : between(1, 40); // 0 and shared IDs are repaired on writing
        layer.blendMode = PSDFourCharCode(std::string(modes[pick(modes.size())]));
        layer.opacity = fraction();
        layer.fillOpacity = chance(50) ? 1.0 : fraction();
        layer.visible = chance(80);
        layer.clipping = chance(20);
        layer.lockFlags = between(0, 0xFFFFFFFF);
        layer.colorLabel = between(0, 7);
        layer.selected = chance(20);
        if (chance(20)) {
            layer.layerBlendingRanges =
                std::vector<std::uint8_t>(static_cast<std::size_t>(between(1, 12)), 3);
        }
        layer.uninterpretedBlocks = keptBlocks(true, {"shmd", "TySh", "vmsk", "lnsr"});
    }

    void addMask(PSDLayerWrapper& layer, const PSDWrapper& doc)
    {
        layer.hasLayerMask = true;
        layer.maskRect = bounds(doc);
        if (!layer.maskRect.isEmpty()) {
            layer.setMaskImage(image(*image::grayPixelFormatForDepth(doc.bitDepth), layer.maskRect.size()));
        }
        layer.maskDefaultColor = chance(50) ? 0.0 : 1.0;
        layer.maskIsPositionedRelativeToLayer = chance(30);
        layer.maskDisabled = chance(30);
        layer.maskCameFromRenderingOtherData = chance(20);
        // Parameter values are only stored with their flags.
        if ((layer.maskHasUserMaskDensity = chance(30))) {
            layer.userMaskDensity = fraction();
        }
        if ((layer.maskHasUserMaskFeather = chance(30))) {
            layer.userMaskFeather = static_cast<double>(between(0, 100)) / 4.0;
        }
        if ((layer.maskHasVectorMaskDensity = chance(30))) {
            layer.vectorMaskDensity = fraction();
        }
        if ((layer.maskHasVectorMaskFeather = chance(30))) {
            layer.vectorMaskFeather = static_cast<double>(between(0, 100)) / 8.0;
        }
        if (chance(20)) {
            layer.hasRealFlags = true;
            layer.realMaskRect = bounds(doc);
            layer.realMaskDefaultColor = chance(50) ? 0.0 : 1.0;
            layer.realMaskDisabled = chance(30);
        }
    }

    std::mt19937 random_;
};

// Mask parameters that fill the body to 36 bytes make the writer add the real-mask fields, as a
// copy of the user mask's, so that the reader does not take the parameters for them.
void expectRealFieldsAddedByWriting(PSDLayerWrapper& layer)
{
    const std::int64_t parameterBytes =
        1 + (layer.maskHasUserMaskDensity ? 1 : 0) + (layer.maskHasUserMaskFeather ? 8 : 0) +
        (layer.maskHasVectorMaskDensity ? 1 : 0) + (layer.maskHasVectorMaskFeather ? 8 : 0);
    if (layer.hasLayerMask && !layer.hasRealFlags && 18 + parameterBytes > 32) {
        layer.hasRealFlags = true;
        layer.realMaskRect = layer.maskRect;
        layer.realMaskDefaultColor = layer.maskDefaultColor;
        layer.realMaskIsPositionedRelativeToLayer = layer.maskIsPositionedRelativeToLayer;
        layer.realMaskDisabled = layer.maskDisabled;
        layer.realMaskCameFromRenderingOtherData = layer.maskCameFromRenderingOtherData;
    }
}

TEST(WriteReadPropertyTest, EveryRandomDocumentReadsBackAsWritten)
{
    RandomDocuments random(20261124);
    const PSDReadOptions keepAll{.keepUnknownBlocks = true};
    for (int n = 0; n < 2000; ++n) {
        SCOPED_TRACE("document " + std::to_string(n));
        PSDWrapper doc = random.document();
        const bool opaque = doc.layers.empty() && random.chance(50);
        const auto composite = random.colorImage(doc.bitDepth, {doc.imageWidth, doc.imageHeight}, opaque);
        const auto bytes = doc.serializedRepresentationWithCompositeImage(composite.get());
        const PSDWrapper back(bytes, keepAll);

        for (const auto& layer : doc.layers) {
            expectRealFieldsAddedByWriting(*layer);
        }
        expectSameDocument(doc, back);
        if (::testing::Test::HasFatalFailure()) {
            break;
        }
        EXPECT_EQ(bytesOf(back.compositeImage()), bytesOf(composite));
        for (std::size_t i = 0; back.alphaChannels && i < back.alphaChannels->size(); ++i) {
            EXPECT_EQ((*back.alphaChannels)[i]->name,
                      std::string((*doc.alphaChannels)[i]->name.value()) + '\0');
        }
        if (::testing::Test::HasFailure()) {
            break; // one document's differences are enough to go on
        }
    }
}

} // namespace
} // namespace psdkit
