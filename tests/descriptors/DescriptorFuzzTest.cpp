// Mutated descriptor bytes: reading, writing back, printing and converting must end in a value or
// a PSDError, never in a crash, another exception or an allocation sized by a damaged count.
// Run under AddressSanitizer and UndefinedBehaviorSanitizer in CI.
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include "DescriptorFixtures.hpp"
#include "LayerBlockWalker.hpp"
#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/RectConversion.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> seeds()
{
    std::vector<Bytes> result = {testing::richDescriptorBytes()};
    auto gradient = image::ColorGradient::make({{{1, 0, 0, 1}, 0, 0.5}, {{0, 1, 0, 1}, 1, 0.5}}, {{}, {}});
    gradient->name = "G";
    result.push_back(psdDescriptor(*gradient)->data());
    result.push_back(psdDescriptor(PSDMacRect(1, 2, 3, 4))->data());
    std::ifstream in(std::filesystem::path(PSDKIT_CORPUS_DIR) / "agpsd-effects.psd", std::ios::binary);
    const Bytes file{std::istreambuf_iterator<char>(in), {}};
    for (const auto& block : testing::LayerBlockWalker::walk(file).blocks) {
        if (block.key == "lfx2") {
            result.emplace_back(block.data.begin() + 4, block.data.end());
            break;
        }
    }
    EXPECT_EQ(result.size(), 4u);
    return result;
}

Bytes mutate(Bytes bytes, std::mt19937& random)
{
    auto below = [&](std::size_t n) {
        return n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    static constexpr std::uint32_t words[] = {0, 1, 4, 16, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x00010000};
    const int edits = 1 + static_cast<int>(below(4));
    for (int e = 0; e < edits && !bytes.empty(); ++e) {
        const std::size_t at = below(bytes.size());
        switch (below(5)) {
        case 0:
            bytes[at] = static_cast<std::uint8_t>(below(256));
            break;
        case 1: {
            const std::uint32_t word = words[below(std::size(words))];
            for (std::size_t i = 0; i < 4 && at + i < bytes.size(); ++i) {
                bytes[at + i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
            }
            break;
        }
        case 2:
            bytes.resize(at);
            break;
        case 3: {
            const std::size_t length = below(std::min<std::size_t>(64, bytes.size() - at) + 1);
            const Bytes slice(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
            bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size() + 1)), slice.begin(),
                         slice.end());
            break;
        }
        default: {
            const std::size_t length = below(std::min<std::size_t>(16, bytes.size() - at) + 1);
            bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                        bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
        }
        }
    }
    return bytes;
}

// Runs `f`; a PSDException is an expected outcome, anything else fails the test.
template <typename F> void expectValueOrPSDError(F&& f, std::size_t iteration)
{
    try {
        f();
    } catch (const PSDException&) {
    } catch (const std::exception& e) {
        ADD_FAILURE() << "iteration " << iteration << ": " << e.what();
    }
}

TEST(DescriptorFuzzTest, MutatedDescriptorsEndInAValueOrAPSDError)
{
    const auto inputs = seeds();
    std::mt19937 random(20240611);
    for (std::size_t iteration = 0; iteration < 10000; ++iteration) {
        const Bytes bytes = mutate(inputs[iteration % inputs.size()], random);
        PSDDescriptor descriptor;
        PSDScanner scanner(bytes);
        expectValueOrPSDError([&] { descriptor.read(scanner, false); }, iteration);
        (void)descriptor.debugDescription();
        expectValueOrPSDError([&] { (void)descriptor.data(); }, iteration);
        expectValueOrPSDError([&] { (void)gradientFromPSDDescriptor(descriptor); }, iteration);
        expectValueOrPSDError([&] { (void)rgbaPixelFromPSDDescriptor(descriptor); }, iteration);
        expectValueOrPSDError([&] { (void)macRectFromPSDDescriptor(descriptor); }, iteration);
    }
}

} // namespace
} // namespace psdkit
