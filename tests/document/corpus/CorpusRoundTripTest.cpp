// Every RGB corpus file, read, written with its own composite and read again, keeps every field
// the writer keeps, and every pixel; and it is written to the same bytes whichever sink takes them.
#include <sstream>

#include <gtest/gtest.h>

#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "support/DocumentExpectations.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

// The bytes after the image resources: the layer and mask information and the image data. (The
// metadata packet among the resources is re-encoded by the metadata library on every write.)
V afterResources(const V& file)
{
    PSDScanner scanner(file);
    scanner.seek(26);
    scanner.skip(scanner.scanInt32());
    scanner.skip(scanner.scanInt32());
    return V(file.begin() + scanner.offset(), file.end());
}

// Takes bytes until `limit`, then fails with its own exception.
class FullSink final : public PSDOutputSink {
  public:
    struct Full {};
    explicit FullSink(std::uint64_t limit) : limit_(limit) {}
    void write(std::span<const std::uint8_t> bytes) override
    {
        if (position_ + bytes.size() > limit_) {
            throw Full{};
        }
        position_ += bytes.size();
    }
    void patch(std::uint64_t, std::span<const std::uint8_t>) override {}
    [[nodiscard]] std::uint64_t position() const noexcept override { return position_; }

  private:
    std::uint64_t position_ = 0;
    std::uint64_t limit_;
};

class CorpusRoundTripTest : public ::testing::TestWithParam<std::string> {};

// Read keeping every block, written with its own composite and read again: every field, kept block
// and pixel survives, also after three successive rewrites (a layerless document keeps its channel
// count and alpha channels), and rewriting what was read back gives the same bytes again.
TEST_P(CorpusRoundTripTest, WrittenAndReadAgainKeepsEverything)
{
    PSDReadOptions keepAll;
    keepAll.keepUnknownBlocks = true;
    const V bytes = readCorpusFile(GetParam());
    PSDWrapper original(bytes, keepAll);
    const auto composite = original.compositeImage();
    ASSERT_TRUE(composite);
    const V written = original.serializedRepresentationWithCompositeImage(composite.get());
    EXPECT_EQ(original.serializedRepresentationWithCompositeImage(composite.get()), written);

    V current = written;
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE("rewrite " + std::to_string(round));
        PSDWrapper back(current, keepAll);
        expectSameDocument(original, back);
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
        EXPECT_NEAR(back.hRes, original.hRes, 1.0 / 65535);
        EXPECT_NEAR(back.vRes, original.vRes, 1.0 / 65535);
        EXPECT_EQ(back.hResUnit, original.hResUnit);
        EXPECT_EQ(back.vResUnit, original.vResUnit);
        EXPECT_EQ(back.colorModeData, original.colorModeData);
        EXPECT_EQ(back.colorSpace.iccData(), original.colorSpace.iccData());
        EXPECT_EQ(back.imageResources, original.imageResources);
        EXPECT_EQ(back.globalLayerMaskData, original.globalLayerMaskData);
        EXPECT_EQ(back.selectedLayerIDs, original.selectedLayerIDs);
        EXPECT_EQ(back.globalLightAngle, original.globalLightAngle);
        EXPECT_EQ(back.globalLightAltitude, original.globalLightAltitude);
        EXPECT_EQ(back.enableLayerEffects, original.enableLayerEffects);
        EXPECT_EQ(bytesOf(back.compositeImage()), bytesOf(composite));
        for (std::size_t i = 0; back.alphaChannels && i < back.alphaChannels->size(); ++i) {
            EXPECT_EQ((*back.alphaChannels)[i]->name, (*original.alphaChannels)[i]->name);
        }
        const auto backComposite = back.compositeImage();
        const V again = back.serializedRepresentationWithCompositeImage(backComposite.get());
        if (round == 1) {
            EXPECT_TRUE(afterResources(again) == afterResources(written))
                << "rewriting the output gives the same layers, blocks and image data";
        }
        current = again;
    }
}

// The bytes depend on the document alone: not on the sink, nor on the documents the process read
// in between (one whose XMP has the prefix "xap", one with "xmp"). A sink failing half-way stops
// the write with its own exception.
TEST_P(CorpusRoundTripTest, SameBytesWhicheverSinkAndWhateverWasReadBefore)
{
    const auto writtenToVector = [](const V& bytes) {
        PSDWrapper document(bytes);
        const auto composite = document.compositeImage();
        return document.serializedRepresentationWithCompositeImage(composite.get());
    };
    const V expected = writtenToVector(readCorpusFile(GetParam()));
    PSDWrapper document(readCorpusFile(GetParam()));
    const PSDWrapper xap(readCorpusFile("psdtools-clipping-mask.psd"));
    const PSDWrapper xmp(readCorpusFile("oiio-psd-Layers_16bit_RGB.psd"));
    const auto composite = document.compositeImage();

    std::ostringstream stream;
    PSDStreamOutputSink streamSink(stream);
    document.serializeWithCompositeImage(composite.get(), streamSink, PSDWriteOptions{.threadCount = 1});
    const std::string text = stream.str();
    EXPECT_TRUE(V(text.begin(), text.end()) == expected) << "stream";

    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    PSDFileDescriptorOutputSink fileSink(fileno(file));
    document.serializeWithCompositeImage(composite.get(), fileSink, PSDWriteOptions{.threadCount = 3});
    V fromFile(expected.size() + 1);
    const auto got = ::pread(fileno(file), fromFile.data(), fromFile.size(), 0);
    std::fclose(file);
    ASSERT_EQ(got, static_cast<ssize_t>(expected.size()));
    fromFile.resize(expected.size());
    EXPECT_TRUE(fromFile == expected) << "file descriptor";

    V vector;
    PSDVectorOutputSink vectorSink(vector);
    document.serializeWithCompositeImage(composite.get(), vectorSink);
    EXPECT_TRUE(vector == expected) << "vector sink";
    EXPECT_TRUE(document.serializedRepresentationWithCompositeImage(composite.get()) == expected) << "vector";

    FullSink half(expected.size() / 2);
    EXPECT_THROW(document.serializeWithCompositeImage(composite.get(), half), FullSink::Full);
    EXPECT_LE(half.position(), expected.size() / 2);
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTripTest, ::testing::ValuesIn(rgbCorpusFileNames()),
                         CorpusTestName());

} // namespace
} // namespace psdkit
