// Every RGB corpus file is written to the same bytes whichever way it is written (a vector, a file
// descriptor, a stream, on one thread or several), and whatever documents the process read in
// between: the bytes depend on the document alone.
#include <sstream>

#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using V = std::vector<std::uint8_t>;

std::vector<std::string> rgbFiles()
{
    std::vector<std::string> names;
    for (const auto& name : corpusFileNames()) {
        const V bytes = readCorpusFile(name);
        if (bytes.size() >= 26 && bytes[24] == 0 && bytes[25] == 3) {
            names.push_back(name);
        }
    }
    return names;
}

V writtenToVector(const std::string& name)
{
    PSDWrapper document(readCorpusFile(name));
    const auto composite = document.compositeImage();
    return document.serializedRepresentationWithCompositeImage(composite.get());
}

class CorpusSinkWritingTest : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusSinkWritingTest, SameBytesWhicheverSinkAndWhateverWasReadBefore)
{
    const V expected = writtenToVector(GetParam());

    // Read this file, then one that writes its XMP with the prefix "xap" and one with "xmp".
    PSDWrapper document(readCorpusFile(GetParam()));
    const PSDWrapper xap(readCorpusFile("psdtools-clipping-mask.psd"));
    const PSDWrapper xmp(readCorpusFile("oiio-psd-Layers_16bit_RGB.psd"));
    const auto composite = document.compositeImage();

    std::ostringstream stream;
    PSDStreamOutputSink streamSink(stream);
    document.serializeWithCompositeImage(composite.get(), streamSink, PSDWriteOptions{.threadCount = 1});
    const std::string text = stream.str();
    EXPECT_TRUE(V(text.begin(), text.end()) == expected) << "stream, one thread";

    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    PSDFileDescriptorOutputSink fileSink(fileno(file));
    document.serializeWithCompositeImage(composite.get(), fileSink, PSDWriteOptions{.threadCount = 3});
    V fromFile(expected.size() + 1);
    const auto got = ::pread(fileno(file), fromFile.data(), fromFile.size(), 0);
    std::fclose(file);
    ASSERT_EQ(got, static_cast<ssize_t>(expected.size()));
    fromFile.resize(expected.size());
    EXPECT_TRUE(fromFile == expected) << "file descriptor, three threads";

    V vector;
    PSDVectorOutputSink vectorSink(vector);
    document.serializeWithCompositeImage(composite.get(), vectorSink);
    EXPECT_TRUE(vector == expected) << "vector sink";
    EXPECT_TRUE(document.serializedRepresentationWithCompositeImage(composite.get()) == expected) << "vector";
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusSinkWritingTest, ::testing::ValuesIn(rgbFiles()), CorpusTestName());

// A sink failing half-way through a document: its exception reaches the host unchanged.
TEST(SinkWritingTest, ASinkFailingHalfWayStopsTheWriteWithItsOwnException)
{
    struct Full {};
    class HalfSink final : public PSDOutputSink {
      public:
        explicit HalfSink(std::uint64_t limit) : limit_(limit) {}
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
    const std::string name = "psdtools-clipping-mask.psd";
    const V whole = writtenToVector(name);
    PSDWrapper document(readCorpusFile(name));
    const auto composite = document.compositeImage();
    HalfSink sink(whole.size() / 2);
    EXPECT_THROW(document.serializeWithCompositeImage(composite.get(), sink), Full);
    EXPECT_LE(sink.position(), whole.size() / 2);
}

} // namespace
} // namespace psdkit
