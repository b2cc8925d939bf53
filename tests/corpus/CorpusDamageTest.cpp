// Damaged corpus files: cut short at 50 points and with single bytes flipped at 50 points, every
// file either reads or fails with a PSDException or a documented error of the image core or the
// platform layer — never a crash, a hang or a sanitizer report.
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;

// Reads `bytes` the way a host does: the document, its composite, and serializes it when it read.
void readLikeAHost(std::span<const std::uint8_t> bytes)
{
    try {
        PSDWrapper doc(bytes);
        const auto composite = doc.compositeImage();
        if (composite) {
            const auto written = doc.serializedRepresentationWithCompositeImage(composite.get());
            PSDWrapper again(written);
        }
    } catch (const PSDException&) {
    } catch (const image::ImageException&) {
    } catch (const PlatformException&) {
    }
}

class CorpusDamageTest : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusDamageTest, TruncatedAndBitFlippedFilesFailCleanly)
{
    const auto original = readCorpusFile(GetParam());
    constexpr std::size_t kPoints = 50;
    for (std::size_t k = 0; k < kPoints; ++k) {
        const std::size_t cut = original.size() * k / kPoints;
        readLikeAHost(std::span(original.data(), cut));
    }
    for (std::size_t k = 0; k < kPoints; ++k) {
        auto damaged = original;
        const std::size_t at = (original.size() * (2 * k + 1)) / (2 * kPoints);
        damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ ((0x80u >> (k % 8)) | 0x01u));
        readLikeAHost(damaged);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusDamageTest, ::testing::ValuesIn(corpusFileNames()),
                         CorpusTestName());

} // namespace
} // namespace psdkit
