#include "psdkit/platform/image/PixelBuffer.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/image/ImageTestSupport.hpp"
#include "psdkit/platform/image/ChannelDecoding.hpp"
#include "psdkit/platform/image/InterleavedRGBA.hpp"
#include "psdkit/platform/image/Zip.hpp"
#include "support/ByteBuilder.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::image {
namespace {
using image::testing::mixedBytes;
using psdkit::testing::ByteBuilder;
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;
using Compression = ChannelDataCompressionType;

std::vector<const AnyChannelData*> pointers(const std::vector<AnyChannelData>& channels)
{
    std::vector<const AnyChannelData*> result;
    for (const AnyChannelData& c : channels) {
        result.push_back(&c);
    }
    return result;
}

template <typename P>
PixelBuffer<P> decoded(IntegralSize size, const std::vector<AnyChannelData>& channels, bool expand = false)
{
    const auto list = pointers(channels);
    return PixelBuffer<P>(size, list, expand, "decoded");
}

struct Coding {
    Compression compression;
    PredictionType prediction;
};
constexpr Coding everyCoding[] = {{Compression::none, PredictionType::none},
                                  {Compression::rle, PredictionType::none},
                                  {Compression::zip, PredictionType::none},
                                  {Compression::zip, PredictionType::prediction}};

template <typename P> void expectRoundTrips(IntegralSize size)
{
    PixelBuffer<P> original(size, "original");
    const V content =
        mixedBytes(original.bytes().size(), static_cast<std::uint32_t>(size.width * 31 + size.height));
    std::copy(content.begin(), content.end(), original.mutableBytes().begin());
    for (const Coding& coding : everyCoding) {
        const auto channels = original.makeChannelData(false, coding.compression, coding.prediction, false);
        ASSERT_EQ(channels.size(), PixelTraits<P>::channelCount);
        for (const AnyChannelData& c : channels) {
            EXPECT_EQ(c.sampleType(), PixelTraits<P>::sampleType);
            EXPECT_TRUE(c.bigEndian);
            EXPECT_EQ(c.compressionType, coding.compression);
            EXPECT_EQ(c.predictionType, coding.prediction);
            EXPECT_EQ(c.rowByteCounts.size(),
                      coding.compression == Compression::rle ? size_t(size.height) : 0u);
        }
        const auto before = channels;
        const PixelBuffer<P> back = decoded<P>(size, channels);
        EXPECT_TRUE(std::ranges::equal(back.bytes(), original.bytes()))
            << size.width << "x" << size.height << " " << rawText(coding.compression) << " "
            << static_cast<int>(coding.prediction);
        EXPECT_EQ(channels, before) << "decoding must leave the stored channels as they were";
    }
}

TEST(PixelBufferTest, EveryCodingDepthAndSizeRoundTrips)
{
    const IntegralSize sizes[] = {{1, 1},   {8, 8}, {9, 9}, {13, 7}, {1000, 1},
                                  {1, 300}, {0, 0}, {0, 4}, {5, 0}};
    for (const IntegralSize size : sizes) {
        expectRoundTrips<PixelARGB8>(size);
        expectRoundTrips<PixelRGBA16>(size);
        expectRoundTrips<PixelRGBA32>(size);
        expectRoundTrips<PixelGray8>(size);
        expectRoundTrips<PixelGray16>(size);
        expectRoundTrips<PixelGray32>(size);
    }
}

// Colour buffers give their channels as red, green, blue, transparency whatever the memory layout,
// and take them back by role. Values r=1, g=2, b=3, a=4 make a swap visible.
template <typename P> void expectLogicalChannelOrder(const P& pixel, const std::vector<V>& expectedSamples)
{
    PixelBuffer<P> buffer({3, 2});
    std::ranges::fill(buffer.pixels(), pixel);
    for (const Coding& coding : everyCoding) {
        const auto channels = buffer.makeChannelData(false, coding.compression, coding.prediction, true);
        const PixelBuffer<P> back = decoded<P>({3, 2}, channels);
        EXPECT_EQ(back.at(2, 1), pixel);
        const auto again = back.makeChannelData(false, coding.compression, coding.prediction, true);
        EXPECT_EQ(again, channels);
    }
    const auto raw = buffer.makeChannelData(false, Compression::none, PredictionType::none, false);
    ASSERT_EQ(raw.size(), 4u);
    for (std::size_t c = 0; c < 4; ++c) {
        V expected;
        for (int i = 0; i < 6; ++i) {
            expected.insert(expected.end(), expectedSamples[c].begin(), expectedSamples[c].end());
        }
        EXPECT_EQ(raw[c].compressedData, expected) << "channel " << c;
    }
    const auto colourOnly = buffer.makeChannelData(true, Compression::none, PredictionType::none, false);
    ASSERT_EQ(colourOnly.size(), 3u);
    EXPECT_EQ(colourOnly[2], raw[2]);
}

TEST(PixelBufferTest, ChannelsAreRedGreenBlueTransparencyWhateverTheLayout)
{
    expectLogicalChannelOrder(PixelARGB8{.a = 4, .r = 1, .g = 2, .b = 3}, {{1}, {2}, {3}, {4}});
    expectLogicalChannelOrder(PixelRGBA16{.r = 1, .g = 2, .b = 3, .a = 4}, {{0, 1}, {0, 2}, {0, 3}, {0, 4}});
    expectLogicalChannelOrder(PixelRGBA32{.r = 1.0f, .g = 2.0f, .b = 3.0f, .a = 4.0f},
                              {{0x3F, 0x80, 0, 0}, {0x40, 0, 0, 0}, {0x40, 0x40, 0, 0}, {0x40, 0x80, 0, 0}});

    // Hand-made channels: red 01, green 02, blue 03, transparency 04 land as a, r, g, b in memory.
    std::vector<AnyChannelData> channels;
    for (std::uint8_t v = 1; v <= 4; ++v) {
        channels.push_back(ChannelData<std::uint8_t>(V{v}, true, Compression::none, PredictionType::none));
    }
    EXPECT_TRUE(std::ranges::equal(decoded<PixelARGB8>({1, 1}, channels).bytes(), V{4, 1, 2, 3}));
}

TEST(PixelBufferTest, OpaqueTransparencyIsStoredAsTheFormatsMaximum)
{
    PixelBuffer<PixelARGB8> b8({2, 1});
    std::ranges::fill(b8.pixels(), PixelARGB8{.a = 255, .r = 0, .g = 0, .b = 0});
    PixelBuffer<PixelRGBA16> b16({2, 1});
    std::ranges::fill(b16.pixels(), PixelRGBA16{.r = 0, .g = 0, .b = 0, .a = 65535});
    PixelBuffer<PixelRGBA32> b32({2, 1});
    std::ranges::fill(b32.pixels(), PixelRGBA32{.r = 0, .g = 0, .b = 0, .a = 1.0f});
    const auto none = Compression::none;
    EXPECT_EQ(b8.makeChannelData(false, none, PredictionType::none, false)[3].compressedData,
              (V{0xFF, 0xFF}));
    EXPECT_EQ(b16.makeChannelData(false, none, PredictionType::none, false)[3].compressedData,
              (V{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(b32.makeChannelData(false, none, PredictionType::none, false)[3].compressedData,
              (V{0x3F, 0x80, 0x00, 0x00, 0x3F, 0x80, 0x00, 0x00}));

    // And those bytes decode to the maximum.
    const std::vector<AnyChannelData> opaque{
        ChannelData<float>(V{0x3F, 0x80, 0, 0}, true, none, PredictionType::none)};
    EXPECT_EQ(decoded<PixelGray32>({1, 1}, opaque).at(0, 0).v, 1.0f);
}

TEST(PixelBufferTest, KnownPackBitsChannelDecodesToKnownPixels)
{
    // 130 × 2 grey: row 0 = a run of 128 sevens, a no-op, then the literal 1 2; row 1 = 130 × 9.
    AnyChannelData channel(SampleType::uint8,
                           ByteBuilder().raw({0x81, 7, 0x80, 0x01, 1, 2, 0x81, 9, 0xFF, 9}), true,
                           Compression::rle, PredictionType::none);
    channel.rowByteCounts = {6, 4};
    const PixelBuffer<PixelGray8> buffer = decoded<PixelGray8>({130, 2}, {channel});
    EXPECT_EQ(buffer.at(0, 0).v, 7);
    EXPECT_EQ(buffer.at(127, 0).v, 7);
    EXPECT_EQ(buffer.at(128, 0).v, 1);
    EXPECT_EQ(buffer.at(129, 0).v, 2);
    EXPECT_EQ(buffer.at(0, 1).v, 9);
    EXPECT_EQ(buffer.at(129, 1).v, 9);
}

TEST(PixelBufferTest, LittleEndianChannelsDecodeByTheirFlag)
{
    // Samples 0x0102 and 0x0304, little-endian; predicted: differences 0x0102 and 0x0202.
    const V raw{0x02, 0x01, 0x04, 0x03};
    const V differences{0x02, 0x01, 0x02, 0x02};
    const std::vector<AnyChannelData> cases[] = {
        {ChannelData<std::uint16_t>(raw, false, Compression::none, PredictionType::none)},
        {ChannelData<std::uint16_t>(detail::zlibDeflate(differences), false, Compression::zip,
                                    PredictionType::prediction)},
    };
    for (const auto& channels : cases) {
        const auto buffer = decoded<PixelGray16>({2, 1}, channels);
        EXPECT_EQ(buffer.at(0, 0).v, 0x0102);
        EXPECT_EQ(buffer.at(1, 0).v, 0x0304);
    }
}

TEST(PixelBufferTest, ExpandingTheSixteenBitRangeScalesOnlyWhenAsked)
{
    const V samples = ByteBuilder().u16(0).u16(16384).u16(32768).u16(40000).u16(1);
    const std::vector<AnyChannelData> channels{
        ChannelData<std::uint16_t>(samples, true, Compression::none, PredictionType::none)};
    const auto kept = decoded<PixelGray16>({5, 1}, channels, false);
    const auto expanded = decoded<PixelGray16>({5, 1}, channels, true);
    const std::uint16_t keptValues[] = {0, 16384, 32768, 40000, 1};
    const std::uint16_t expandedValues[] = {0, 32768, 65535, 65535, 2};
    for (int x = 0; x < 5; ++x) {
        EXPECT_EQ(kept.at(x, 0).v, keptValues[x]);
        EXPECT_EQ(expanded.at(x, 0).v, expandedValues[x]);
    }
    const std::vector<AnyChannelData> bytes{ChannelData<std::uint8_t>(V{200}, true, Compression::none, {})};
    EXPECT_EQ(decoded<PixelGray8>({1, 1}, bytes, true).at(0, 0).v, 200);
}

TEST(PixelBufferTest, ChannelsThatDoNotFitTheirPlaneAreRefusedWithTheirError)
{
    const auto u8 = [](V data, Compression compression = Compression::none,
                       PredictionType prediction = PredictionType::none) {
        return AnyChannelData(SampleType::uint8, std::move(data), true, compression, prediction);
    };
    const auto rle = [&](V data, std::vector<std::int64_t> counts) {
        AnyChannelData c = u8(std::move(data), Compression::rle);
        c.rowByteCounts = std::move(counts);
        return c;
    };
    const V plane4 = {1, 2, 3, 4};
    V trailing = detail::zlibDeflate(plane4);
    trailing.push_back(0);
    std::vector<std::int64_t> hugeCounts(300000, 0);
    hugeCounts[0] = 10;

    struct Case {
        const char* what;
        IntegralSize size;
        AnyChannelData channel;
        ImageError expected;
    };
    const Case cases[] = {
        {"negative width", {-1, 2}, u8({}), ImageError::invalidSize},
        {"negative height", {2, -1}, u8({}), ImageError::invalidSize},
        {"byte count overflows",
         {std::numeric_limits<std::int64_t>::max(), 3},
         u8({}),
         ImageError::imageTooLarge},
        {"16-bit samples for 8-bit pixels",
         {2, 2},
         ChannelData<std::uint16_t>(V(8), true, {}, {}),
         ImageError::sampleTypeMismatch},
        {"raw short", {2, 2}, u8({1, 2, 3}), ImageError::rawSizeMismatch},
        {"raw long", {2, 2}, u8({1, 2, 3, 4, 5}), ImageError::rawSizeMismatch},
        {"raw 300000 squared from ten bytes", {300000, 300000}, u8(V(10)), ImageError::rawSizeMismatch},
        {"fewer row counts than rows", {2, 2}, rle({0x01, 1, 2}, {3}), ImageError::rowByteCountMismatch},
        {"negative row count", {2, 2}, rle({0x01, 1, 2}, {4, -1}), ImageError::rowByteCountMismatch},
        {"row counts beyond the data",
         {2, 2},
         rle({0x01, 1, 2, 0x01, 3}, {3, 3}),
         ImageError::rowByteCountMismatch},
        {"data beyond the row counts",
         {2, 2},
         rle({0x01, 1, 2, 0x01, 3, 4, 0}, {3, 3}),
         ImageError::rowByteCountMismatch},
        {"short PackBits row", {2, 2}, rle({0x00, 1, 0x01, 3, 4}, {2, 3}), ImageError::corruptPackBits},
        {"overlong PackBits row",
         {2, 2},
         rle({0x02, 1, 2, 3, 0x01, 3, 4}, {4, 3}),
         ImageError::corruptPackBits},
        {"PackBits 300000 squared from ten bytes",
         {300000, 300000},
         rle(V(10), hugeCounts),
         ImageError::corruptPackBits},
        {"zip inflating to less",
         {3, 2},
         u8(detail::zlibDeflate(plane4), Compression::zip),
         ImageError::corruptZip},
        {"zip inflating to more",
         {3, 1},
         u8(detail::zlibDeflate(plane4), Compression::zip),
         ImageError::corruptZip},
        {"zip with trailing bytes", {2, 2}, u8(trailing, Compression::zip), ImageError::corruptZip},
        {"zip 300000 squared from ten bytes",
         {300000, 300000},
         u8(V(10), Compression::zip),
         ImageError::corruptZip},
        {"zip with prediction 2",
         {2, 2},
         u8(detail::zlibDeflate(plane4), Compression::zip, PredictionType{2}),
         ImageError::unsupportedPrediction},
        {"compression 3",
         {2, 2},
         u8(plane4, ChannelDataCompressionType{3}),
         ImageError::unsupportedCompression},
    };
    for (const Case& c : cases) {
        const AnyChannelData* one[] = {&c.channel};
        EXPECT_EQ(thrownError([&] { PixelBuffer<PixelGray8>(c.size, one, false, {}); }), c.expected)
            << c.what;
    }

    const AnyChannelData good = u8(plane4);
    const AnyChannelData* three[] = {&good, &good, &good};
    EXPECT_EQ(thrownError([&] {
                  PixelBuffer<PixelARGB8>({2, 2}, three, false, {});
              }),
              ImageError::channelCountMismatch);
    EXPECT_EQ(thrownError([&] {
                  PixelBuffer<PixelGray8>({2, 2}, three, false, {});
              }),
              ImageError::channelCountMismatch);
}

TEST(PixelBufferTest, SplittingRefusesCompressionsAndPredictionsItDoesNotKnow)
{
    const PixelBuffer<PixelRGBA16> buffer({2, 2});
    EXPECT_EQ(thrownError([&] {
                  (void)buffer.makeChannelData(false, ChannelDataCompressionType{3}, PredictionType::none,
                                               false);
              }),
              ImageError::unsupportedCompression);
    EXPECT_EQ(
        thrownError([&] { (void)buffer.makeChannelData(false, Compression::zip, PredictionType{2}, false); }),
        ImageError::unsupportedPrediction);
    // Prediction belongs to ZIP; the other compressions record none.
    EXPECT_EQ(
        buffer.makeChannelData(false, Compression::rle, PredictionType::prediction, false)[0].predictionType,
        PredictionType::none);
}

TEST(PixelBufferTest, WorkerThreadGivesTheSameChannelsPixelsAndErrors)
{
    const IntegralSize size{1024, 1030};
    PixelBuffer<PixelARGB8> buffer(size);
    const V content = mixedBytes(buffer.bytes().size(), 99);
    std::copy(content.begin(), content.end(), buffer.mutableBytes().begin());
    for (const Coding& coding : everyCoding) {
        const auto channels = buffer.makeChannelData(false, coding.compression, coding.prediction, true);
        EXPECT_EQ(channels, buffer.makeChannelData(false, coding.compression, coding.prediction, false));
        const auto list = pointers(channels);
        const PixelBuffer<PixelARGB8> back(size, list, false, {}, true);
        EXPECT_TRUE(std::ranges::equal(back.bytes(), buffer.bytes()));
        V rgba(buffer.bytes().size()); // the same pixels in channel order, rows on three threads
        detail::decodeChannelsInGivenOrder(size, list, PixelFormat::argb8, rgba.data(), 3);
        EXPECT_EQ(rgba, interleavedRGBA(buffer));
    }

    // A broken PackBits row in the first band and a broken zlib stream: whoever decodes what, the
    // stream is met first, as in a decoding in order.
    auto rle = buffer.makeChannelData(false, Compression::rle, PredictionType::none, false);
    auto zip = buffer.makeChannelData(false, Compression::zip, PredictionType::none, false);
    rle[0].compressedData[0] = 0x7F; // the first row's first literal now runs past its bytes
    zip[3].compressedData.back() ^= 0x01;
    const std::vector<AnyChannelData> mixed{rle[0], rle[1], rle[2], zip[3]};
    const std::vector<AnyChannelData> rowOnly{rle[0], rle[1], rle[2], rle[3]};
    for (const bool worker : {false, true}) {
        const auto list = pointers(mixed);
        EXPECT_EQ(thrownError([&] { PixelBuffer<PixelARGB8>(size, list, false, {}, worker); }),
                  ImageError::corruptZip);
        const auto rows = pointers(rowOnly);
        EXPECT_EQ(thrownError([&] { PixelBuffer<PixelARGB8>(size, rows, false, {}, worker); }),
                  ImageError::corruptPackBits);
    }
}

TEST(PixelBufferTest, BlankBufferIsZeroAndSharedByItsHolders)
{
    const auto buffer = std::make_shared<PixelBuffer<PixelRGBA32>>(IntegralSize{3, 2}, "blank");
    const std::shared_ptr<PixelBufferType> seen = buffer;
    EXPECT_EQ(seen->size(), (IntegralSize{3, 2}));
    EXPECT_EQ(seen->format(), PixelFormat::rgba32);
    EXPECT_EQ(seen->title(), "blank");
    EXPECT_EQ(seen->bytes().size(), 3u * 2u * 16u);
    EXPECT_TRUE(std::ranges::all_of(seen->bytes(), [](std::uint8_t b) { return b == 0; }));
    buffer->at(2, 1).g = 0.5f;
    float g;
    std::memcpy(&g, seen->bytes().data() + (1 * 3 + 2) * 16 + 4, 4);
    EXPECT_EQ(g, 0.5f);
    EXPECT_EQ(thrownError([] { PixelBuffer<PixelGray8>({-1, 1}); }), ImageError::invalidSize);
    // By runtime pixel type, and by depth: 8, 16 and 32 bits have one colour and one grey type each.
    for (const auto& [depth, color, gray, pixelBytes] :
         {std::tuple{8, PixelFormat::argb8, PixelFormat::gray8, 4u},
          {16, PixelFormat::rgba16, PixelFormat::gray16, 8u},
          {32, PixelFormat::rgba32, PixelFormat::gray32, 16u}}) {
        EXPECT_EQ(colorPixelFormatForDepth(depth), color);
        EXPECT_EQ(grayPixelFormatForDepth(depth), gray);
        const auto made = makePixelBuffer(color, {3, 2}, "made");
        EXPECT_EQ(made->format(), color);
        EXPECT_EQ(made->bytes().size(), 6 * pixelBytes);
        EXPECT_EQ(makePixelBuffer(gray, {3, 2})->bytes().size(), 6 * pixelBytes / 4);
    }
    EXPECT_EQ(colorPixelFormatForDepth(1), std::nullopt);
    EXPECT_EQ(thrownError([] {
                  (void)makePixelBuffer(PixelFormat::gray16, {1, -1});
              }),
              ImageError::invalidSize);
}

TEST(ChannelDataTest, CompressionRawTextsAndErrorDomain)
{
    for (const auto c : {Compression::none, Compression::rle, Compression::zip}) {
        EXPECT_EQ(compressionTypeFromRawText(rawText(c)), c);
    }
    EXPECT_EQ(rawText(Compression::zip), "Zip");
    EXPECT_EQ(compressionTypeFromRawText("zip"), std::nullopt);
    EXPECT_STREQ(imageErrorCategory().name(), "psdkit.image");
    EXPECT_EQ(ImageException(ImageError::corruptZip).code().value(), 8);
    EXPECT_EQ(imageErrorCategory().message(7), "corruptPackBits");
}

} // namespace
} // namespace psdkit::image
