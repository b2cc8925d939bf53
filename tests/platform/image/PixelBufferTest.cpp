#include "psdkit/platform/image/PixelBuffer.hpp"

#include <algorithm>
#include <limits>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/platform/image/ChannelDecoding.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/InterleavedRGBA.hpp"
#include "psdkit/platform/image/Zip.hpp"
#include "support/ByteBuilder.hpp"
#include "support/ThrownError.hpp"

namespace psdkit::image {
namespace {
using psdkit::testing::ByteBuilder;
using psdkit::testing::thrownError;
using V = std::vector<std::uint8_t>;
using Compression = ChannelDataCompressionType;

// Fills `bytes` with deterministic runs of equal bytes and noise, so that every PackBits header kind
// and every deflate path is exercised.
void fillMixed(std::span<std::uint8_t> bytes, std::uint32_t seed)
{
    std::mt19937 random(seed);
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = std::min(bytes.size(), at + 1 + random() % 200);
        const bool run = random() % 2 == 0;
        const auto value = static_cast<std::uint8_t>(random());
        for (; at < end; ++at) {
            bytes[at] = run ? value : static_cast<std::uint8_t>(random());
        }
    }
}

std::vector<const AnyChannelData*> pointers(const std::vector<AnyChannelData>& channels)
{
    std::vector<const AnyChannelData*> result;
    for (const AnyChannelData& c : channels) {
        result.push_back(&c);
    }
    return result;
}

template <typename P>
PixelBuffer<P> decoded(IntegralSize size, const std::vector<AnyChannelData>& channels, bool expand = false,
                       bool mayUseWorkerThread = false)
{
    const auto list = pointers(channels);
    return PixelBuffer<P>(size, list, expand, "decoded", mayUseWorkerThread);
}

constexpr std::pair<Compression, PredictionType> everyCoding[] = {
    {Compression::none, PredictionType::none},
    {Compression::rle, PredictionType::none},
    {Compression::zip, PredictionType::none},
    {Compression::zip, PredictionType::prediction}};

template <typename P> void expectRoundTrips(IntegralSize size)
{
    PixelBuffer<P> original(size, "original");
    fillMixed(original.mutableBytes(), static_cast<std::uint32_t>(size.width * 31 + size.height));
    for (const auto& [compression, prediction] : everyCoding) {
        // Large images are split and decoded with a worker thread when allowed; the result is the same.
        const auto channels = original.makeChannelData(false, compression, prediction, false);
        EXPECT_EQ(original.makeChannelData(false, compression, prediction, true), channels);
        const auto before = channels;
        const PixelBuffer<P> back = decoded<P>(size, channels, false, true);
        EXPECT_TRUE(std::ranges::equal(back.bytes(), original.bytes()))
            << size.width << "x" << size.height << " " << rawText(compression) << " "
            << static_cast<int>(prediction);
        EXPECT_EQ(channels, before) << "decoding must leave the stored channels as they were";
    }
}

TEST(PixelBufferTest, EveryCodingDepthAndSizeRoundTrips)
{
    const IntegralSize sizes[] = {{1, 1},   {8, 8}, {9, 9}, {13, 7}, {1000, 1},
                                  {1, 300}, {0, 0}, {0, 4}, {5, 0},  {1024, 1030}};
    const auto inEveryFormat = []<typename... P>(IntegralSize size, P...) {
        (expectRoundTrips<P>(size), ...);
    };
    for (const IntegralSize size : sizes) {
        inEveryFormat(size, PixelARGB8{}, PixelRGBA16{}, PixelRGBA32{}, PixelGray8{}, PixelGray16{},
                      PixelGray32{});
    }
}

TEST(PixelBufferTest, SixteenBitSamplesDecodeByTheirByteOrderAndExpandTheirRangeOnlyWhenAsked)
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

    // The 15-bit range of 16-bit samples is expanded only when asked.
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

TEST(PixelBufferTest, ChannelsThatDoNotFitTheirPlaneAndUnknownCodingsAreRefusedWithTheirError)
{
    const auto u8 = [](V data, Compression compression = Compression::none, PredictionType prediction = {}) {
        return AnyChannelData(SampleType::uint8, std::move(data), true, compression, prediction);
    };
    const auto rle = [&](V data, std::vector<std::int64_t> counts) {
        AnyChannelData c = u8(std::move(data), Compression::rle);
        c.rowByteCounts = std::move(counts);
        return c;
    };
    const V plane4 = {1, 2, 3, 4};
    const V deflated = detail::zlibDeflate(plane4);
    std::vector<std::int64_t> hugeCounts(300000, 0);
    hugeCounts[0] = 10;
    using E = ImageError;
    const IntegralSize two{2, 2}, huge{300000, 300000};
    const std::int64_t largest = std::numeric_limits<std::int64_t>::max();

    const std::tuple<const char*, IntegralSize, AnyChannelData, ImageError> cases[] = {
        {"negative width", {-1, 2}, u8({}), E::invalidSize},
        {"negative height", {2, -1}, u8({}), E::invalidSize},
        {"byte count overflows", {largest, 3}, u8({}), E::imageTooLarge},
        {"16-bit samples", two, ChannelData<std::uint16_t>(V(8), true, {}, {}), E::sampleTypeMismatch},
        {"raw short", two, u8({1, 2, 3}), E::rawSizeMismatch},
        {"raw long", two, u8({1, 2, 3, 4, 5}), E::rawSizeMismatch},
        {"raw huge from ten bytes", huge, u8(V(10)), E::rawSizeMismatch},
        {"fewer row counts than rows", two, rle({0x01, 1, 2}, {3}), E::rowByteCountMismatch},
        {"negative row count", two, rle({0x01, 1, 2}, {4, -1}), E::rowByteCountMismatch},
        {"row counts beyond the data", two, rle({0x01, 1, 2, 0x01, 3}, {3, 3}), E::rowByteCountMismatch},
        {"data beyond the row counts", two, rle({1, 1, 2, 1, 3, 4, 0}, {3, 3}), E::rowByteCountMismatch},
        // Rows and streams the codecs refuse (their own tests hold the cases) fail the buffer too.
        {"PackBits huge from ten bytes", huge, rle(V(10), hugeCounts), E::corruptPackBits},
        {"zip huge from ten bytes", huge, u8(V(10), Compression::zip), E::corruptZip},
        {"prediction 2", two, u8(deflated, Compression::zip, PredictionType{2}), E::unsupportedPrediction},
        {"compression 3", two, u8(plane4, ChannelDataCompressionType{3}), E::unsupportedCompression},
    };
    for (const auto& [what, size, channel, expected] : cases) {
        const AnyChannelData* one[] = {&channel};
        EXPECT_EQ(thrownError([&] { PixelBuffer<PixelGray8>(size, one, false, {}); }), expected) << what;
    }

    const AnyChannelData good = u8(plane4);
    const AnyChannelData* three[] = {&good, &good, &good};
    EXPECT_EQ(thrownError([&] { PixelBuffer<PixelARGB8>(two, three, false, {}); }), E::channelCountMismatch);
    EXPECT_EQ(thrownError([&] { PixelBuffer<PixelGray8>(two, three, false, {}); }), E::channelCountMismatch);
    // Blank buffers are zero, and refuse a negative size.
    EXPECT_TRUE(
        std::ranges::all_of(PixelBuffer<PixelRGBA32>({3, 2}).bytes(), [](std::uint8_t b) { return b == 0; }));
    EXPECT_EQ(thrownError([] { PixelBuffer<PixelGray8>({-1, 1}); }), ImageError::invalidSize);
    const auto invalid = [] { (void)makePixelBuffer(PixelFormat::gray16, {1, -1}); };
    EXPECT_EQ(thrownError(invalid), ImageError::invalidSize);
    EXPECT_EQ(colorPixelFormatForDepth(1), std::nullopt);
    // Splitting refuses compressions and predictions it does not know.
    const PixelBuffer<PixelRGBA16> buffer({2, 2});
    const auto split = [&](Compression c, PredictionType p) {
        return buffer.makeChannelData(false, c, p, false);
    };
    EXPECT_EQ(thrownError([&] { (void)split(Compression{3}, {}); }), ImageError::unsupportedCompression);
    EXPECT_EQ(thrownError([&] { (void)split(Compression::zip, PredictionType{2}); }),
              ImageError::unsupportedPrediction);
    // Prediction belongs to ZIP; the other compressions record none.
    EXPECT_EQ(split(Compression::rle, PredictionType::prediction)[0].predictionType, PredictionType::none);
}

TEST(PixelBufferTest, WorkerThreadGivesTheSameErrors)
{
    const IntegralSize size{1024, 1030};
    PixelBuffer<PixelARGB8> buffer(size);
    fillMixed(buffer.mutableBytes(), 99);
    // The same pixels decoded in channel order, rows on three threads.
    const auto plain = buffer.makeChannelData(false, Compression::rle, PredictionType::none, false);
    V rgba(buffer.bytes().size());
    detail::decodeChannelsInGivenOrder(size, pointers(plain), PixelFormat::argb8, rgba.data(), 3);
    EXPECT_EQ(rgba, interleavedRGBA(buffer));
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

// Pixel buffers from and to interleaved RGBA samples, whatever the buffer's memory order.
TEST(InterleavedRGBATest, BuffersOfEveryDepthRoundTripAndSamplesThatDoNotFitAreRefused)
{
    const std::vector<std::uint8_t> rgba = {10, 20, 30, 40, 50, 60, 70, 80};
    const auto buffer = pixelBufferFromRGBA(IntegralSize{2, 1}, rgba);
    EXPECT_EQ(buffer->at(0, 0), (PixelARGB8{40, 10, 20, 30}));
    EXPECT_EQ(buffer->bytes()[0], 40); // memory order a, r, g, b
    EXPECT_EQ(interleavedRGBA(*buffer), rgba);
    const std::vector<std::uint16_t> deep = {1, 2, 3, 65535, 40000, 0, 7, 9};
    EXPECT_EQ(interleavedRGBA(*pixelBufferFromRGBA(IntegralSize{1, 2}, deep)), deep);
    const std::vector<float> floats = {0.25F, 0.5F, 1.5F, 1.0F};
    EXPECT_EQ(pixelBufferFromRGBA(IntegralSize{1, 1}, floats)->at(0, 0),
              (PixelRGBA32{0.25F, 0.5F, 1.5F, 1.0F}));
    EXPECT_EQ(interleavedRGBA(*pixelBufferFromRGBA(IntegralSize{1, 1}, floats)), floats);

    // Samples that do not fit the size are refused.
    const auto refusal = [](IntegralSize size, std::size_t samples) {
        return thrownError([&] { (void)pixelBufferFromRGBA(size, std::vector<std::uint8_t>(samples)); });
    };
    EXPECT_EQ(refusal({1, 1}, 5), ImageError::rawSizeMismatch);
    EXPECT_EQ(refusal({1, 1}, 8), ImageError::rawSizeMismatch);
    EXPECT_EQ(refusal({-1, 1}, 8), ImageError::invalidSize);
}

TEST(ImageErrorTest, DomainAndTexts)
{
    EXPECT_STREQ(imageErrorCategory().name(), "psdkit.image");
    EXPECT_EQ(imageErrorCategory().message(7), "corruptPackBits");
}

} // namespace
} // namespace psdkit::image
