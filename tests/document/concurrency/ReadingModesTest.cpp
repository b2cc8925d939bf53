// Reading modes (eager, on demand, never), shared input and threaded decoding: each must give the
// fields, pixels and errors of eager reading on one thread.
#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "support/DocumentExpectations.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// What a host sees of a document: every layer's channels and images, or the first error met
// reading it and then asking for the images layer by layer (content before mask).
struct Observed {
    std::optional<std::error_code> error;
    std::vector<std::vector<image::AnyChannelData>> channels;
    std::vector<image::AnyChannelData> composite;
    std::vector<V> images; // each layer's content, then its mask
};

template <typename Read> Observed observe(Read&& read)
{
    Observed seen;
    try {
        PSDWrapper doc = read();
        seen.composite = doc.imageDataChannelData;
        for (const auto& layer : doc.layers) {
            seen.images.push_back(bytesOf(layer->contentImage()));
            seen.images.push_back(bytesOf(layer->maskImage()));
            seen.channels.push_back(layer->channelInfo);
        }
    } catch (const std::system_error& e) {
        seen.error = e.code();
    }
    return seen;
}

void expectSame(const Observed& expected, const Observed& actual, bool imagesToo = true)
{
    EXPECT_EQ(expected.error, actual.error);
    EXPECT_EQ(expected.channels, actual.channels);
    EXPECT_EQ(expected.composite, actual.composite);
    if (imagesToo) {
        EXPECT_EQ(expected.images, actual.images);
    }
}

PSDReadOptions options(PSDImageDecoding decoding, unsigned threads = 0)
{
    return {.imageDecoding = decoding, .threadCount = threads};
}

class CorpusReadingModes : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusReadingModes, EveryModeSeesAndWritesWhatEagerReadingOnOneThreadDoes)
{
    const V file = readCorpusFile(GetParam());
    const PSDSharedBytes shared = PSDSharedBytes::copyOf(file);
    const auto eagerOne = observe([&] { return PSDWrapper(file, options(PSDImageDecoding::eager, 1)); });
    expectSame(eagerOne, observe([&] { return PSDWrapper(file, options(PSDImageDecoding::eager, 4)); }));
    expectSame(eagerOne, observe([&] { return PSDWrapper(shared, options(PSDImageDecoding::eager)); }));
    expectSame(eagerOne, observe([&] { return PSDWrapper(file, options(PSDImageDecoding::onDemand)); }));
    expectSame(eagerOne, observe([&] { return PSDWrapper(shared, options(PSDImageDecoding::onDemand)); }));
    if (eagerOne.error) {
        return;
    }
    // Pixels copied out in channel order are the same decoded from a pending layer's channels as
    // copied from a decoded image, and the pending layer stays pending.
    const auto rgba = [](const PSDLayerWrapper& layer, unsigned threads) {
        const auto size = layer.contentImageSize().value_or(image::IntegralSize{});
        V out(static_cast<std::size_t>(size.width * size.height * layer.bitDepth / 2));
        return layer.copyContentImageRGBA(out, threads) ? out : V{1};
    };
    const PSDWrapper decoded(file), pending(shared, options(PSDImageDecoding::onDemand));
    for (std::size_t i = 0; i < decoded.layers.size(); ++i) {
        EXPECT_EQ(rgba(*pending.layers[i], 3), rgba(*decoded.layers[i], 1)) << "layer " << i;
        EXPECT_EQ(pending.layers[i]->hasPendingImages(),
                  decoded.layers[i]->contentImage() != nullptr || decoded.layers[i]->maskImage() != nullptr);
    }
    // Never decoding reads the same structure and leaves every image absent.
    const auto never = observe([&] { return PSDWrapper(shared, options(PSDImageDecoding::never)); });
    expectSame(eagerOne, never, false);
    for (const V& image : never.images) {
        EXPECT_TRUE(image.empty());
    }

    // Images of a shared input asked for from several threads at once are decoded once, each thread
    // walking the layers from a different start so that threads meet on layers.
    PSDWrapper doc(shared, options(PSDImageDecoding::onDemand));
    std::vector<std::vector<std::shared_ptr<image::PixelBufferType>>> seen(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t) {
        threads.emplace_back([&, t] {
            const std::size_t n = doc.layers.size();
            seen[t].resize(2 * n);
            for (std::size_t k = 0; k < n; ++k) {
                const std::size_t i = (k + t) % n;
                seen[t][2 * i] = doc.layers[i]->contentImage();
                seen[t][2 * i + 1] = doc.layers[i]->maskImage();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < seen[0].size(); ++i) {
        EXPECT_EQ(bytesOf(seen[0][i]), eagerOne.images[i]);
        for (std::size_t t = 1; t < seen.size(); ++t) {
            EXPECT_EQ(seen[t][i], seen[0][i]) << "one buffer per image, whoever asked first";
        }
    }

    // A document read on demand and written on four threads gives the bytes (or the error) of one
    // read eagerly and written on one thread.
    PSDWrapper eager(file);
    const auto composite = eager.compositeImage();
    PSDWrapper onDemand(shared, options(PSDImageDecoding::onDemand));
    const auto write = [&](PSDWrapper& d, unsigned threadCount, V& bytes) {
        return thrownError(
            [&] { bytes = d.serializedRepresentationWithCompositeImage(composite.get(), {threadCount}); });
    };
    V eagerBytes, onDemandBytes;
    EXPECT_EQ(write(eager, 1, eagerBytes), write(onDemand, 4, onDemandBytes));
    EXPECT_EQ(eagerBytes, onDemandBytes);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusReadingModes, ::testing::ValuesIn(corpusFileNames()),
                         CorpusTestName());

// A file of 2 × 2 RGB layers stored with the given channel bytes (compression code included), one
// vector per channel 0, 1, 2 of each layer.
V fileWithLayers(const std::vector<std::vector<V>>& layers)
{
    std::vector<RecordFields> records(layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
        records[i].bottom = records[i].right = 2;
        for (std::size_t c = 0; c < layers[i].size(); ++c) {
            records[i].channels.emplace_back(static_cast<std::int16_t>(c), layers[i][c]);
        }
    }
    return testing::fileWithLayers(records);
}

const V kRaw = {0, 0, 1, 2, 3, 4};
// PackBits rows of 2 bytes each whose first row's literal asks for 6 bytes: corrupt.
const V kCorruptPackBits = {0, 1, 0, 2, 0, 2, 5, 1, 0, 1};
// Too few bytes for a 2 × 2 plane: the image core refuses the size.
const V kShortRaw = {0, 0, 1, 2, 3};

TEST(OnDemandReading, AChannelThatCannotBeDecodedFailsOnAccessWithTheEagerError)
{
    const struct {
        std::vector<V> channels;
        const char* what;
    } cases[] = {{{kRaw, kCorruptPackBits, kRaw}, "corrupt PackBits"},
                 {{kRaw, kShortRaw, kRaw}, "raw plane cut short"},
                 {{kRaw, kRaw}, "two colour channels"}};
    for (const auto& c : cases) {
        const V file = fileWithLayers({{kRaw, kRaw, kRaw}, c.channels});
        const std::error_code eager = thrownError([&] { PSDWrapper d(file); });
        ASSERT_NE(eager, nothingThrown()) << c.what;
        PSDWrapper doc(PSDSharedBytes::copyOf(file), options(PSDImageDecoding::onDemand));
        EXPECT_TRUE(doc.layers[0]->contentImage()) << c.what;
        EXPECT_EQ(thrownError([&] { (void)doc.layers[1]->contentImage(); }), eager) << c.what;
        EXPECT_TRUE(doc.layers[1]->hasPendingImages()) << c.what;
        EXPECT_EQ(thrownError([&] { (void)doc.layers[1]->contentImage(); }), eager) << c.what << " (again)";
        PSDWrapper never(file, options(PSDImageDecoding::never));
        EXPECT_FALSE(never.layers[1]->contentImage()) << c.what;
    }
    // A file cut inside a channel fails while reading, in every mode.
    const V file = fileWithLayers({{kRaw, kRaw, kRaw}});
    const V cut(file.begin(),
                file.end() - static_cast<std::ptrdiff_t>(3 * 4 + 2 + 4 + 4)); // into the last plane
    for (const auto decoding :
         {PSDImageDecoding::eager, PSDImageDecoding::onDemand, PSDImageDecoding::never}) {
        EXPECT_EQ(thrownError([&] { PSDWrapper d(cut, options(decoding)); }),
                  PSDError::readUnexpectedEndOfFile);
    }
}

TEST(ThreadedReading, WithSeveralFailingLayersTheFirstLayersErrorIsReported)
{
    // Layer 1 fails decoding (corrupt PackBits), layer 2 has too few channels, layer 3 fails too:
    // whatever thread finishes first, the error is layer 1's.
    const V file = fileWithLayers(
        {{kRaw, kRaw, kRaw}, {kRaw, kCorruptPackBits, kRaw}, {kRaw, kRaw}, {kShortRaw, kRaw, kRaw}});
    const std::error_code sequential =
        thrownError([&] { PSDWrapper d(file, options(PSDImageDecoding::eager, 1)); });
    EXPECT_EQ(sequential, thrownError([&] {
                  PSDWrapper d(fileWithLayers({{kRaw, kCorruptPackBits, kRaw}}),
                               options(PSDImageDecoding::eager, 1));
              }));
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(thrownError([&] { PSDWrapper d(file, options(PSDImageDecoding::eager, 4)); }), sequential);
    }
}

TEST(SharedInput, PlanesReferToTheInputAndKeepItAlive)
{
    const V file = fileWithLayers({{kRaw, kRaw, kRaw}});
    auto owned = std::make_shared<const V>(file);
    std::optional<PSDWrapper> doc;
    {
        const PSDSharedBytes input(owned, std::span<const std::uint8_t>(*owned));
        doc.emplace(input, options(PSDImageDecoding::onDemand));
    }
    const std::weak_ptr<const V> watch = owned;
    owned.reset();
    ASSERT_FALSE(watch.expired()) << "the document keeps the input alive";
    const auto& channel = doc->layers[0]->channelInfo[0];
    EXPECT_TRUE(channel.compressedData.empty());
    const auto* begin = watch.lock()->data();
    EXPECT_GE(channel.storedBytes().data(), begin);
    EXPECT_LT(channel.storedBytes().data(), begin + file.size());
    EXPECT_TRUE(doc->layers[0]->contentImage());
    doc.reset();
    EXPECT_TRUE(watch.expired()) << "and lets it go with the last plane";
}

} // namespace
} // namespace psdkit
