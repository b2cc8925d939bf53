// Descriptors of real files: every layer block of the corpus that holds a descriptor reads, writes
// back to an equal descriptor, and every gradient fill converts to the stops an independent
// reader (psd-tools, see data/gradient_fill_stops.py) sees.
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "LayerBlockWalker.hpp"
#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/ByteBuilder.hpp"
#include "support/CorpusFiles.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

struct CorpusBlock {
    std::string file;
    int recordIndex;
    std::string key;
    Bytes data;
};

// The descriptor blocks of every layer of every corpus file.
const std::vector<CorpusBlock>& corpusDescriptorBlocks()
{
    static const std::vector<CorpusBlock> blocks = [] {
        std::vector<CorpusBlock> found;
        for (const auto& name : testing::corpusFileNames()) {
            const Bytes file = testing::readCorpusFile(name);
            for (const auto& block : testing::LayerBlockWalker::walk(file).blocks) {
                if (block.key == "SoCo" || block.key == "GdFl" || block.key == "PtFl" ||
                    block.key == "artb" || block.key == "lfx2") {
                    found.push_back(
                        {name, block.recordIndex, block.key, Bytes(block.data.begin(), block.data.end())});
                }
            }
        }
        return found;
    }();
    return blocks;
}

// Reads the descriptor of a block: after the 4-byte effects version for "lfx2", at once otherwise
// (the other blocks begin with the descriptor's own version word).
std::shared_ptr<PSDDescriptor> readBlockDescriptor(const CorpusBlock& block)
{
    PSDScanner scanner(block.data);
    if (block.key == "lfx2") {
        EXPECT_EQ(scanner.scanUInt32(), 0u);
    }
    auto descriptor = std::make_shared<PSDDescriptor>();
    descriptor->read(scanner, false);
    EXPECT_LT(scanner.bytesRemaining(), 4) << block.file << " " << block.key; // at most padding is left
    return descriptor;
}

TEST(DescriptorCorpusTest, EveryLayerDescriptorReadsAndWritesBackEqual)
{
    std::map<std::string, int> counts;
    for (const auto& block : corpusDescriptorBlocks()) {
        SCOPED_TRACE(block.file + " record " + std::to_string(block.recordIndex) + " " + block.key);
        std::shared_ptr<PSDDescriptor> descriptor;
        ASSERT_NO_THROW(descriptor = readBlockDescriptor(block));
        const Bytes written = descriptor->data();
        PSDScanner scanner(written);
        PSDDescriptor again;
        again.read(scanner, false);
        EXPECT_EQ(scanner.bytesRemaining(), 0);
        EXPECT_TRUE(again.hasSameContent(*descriptor));
        ++counts[block.key];
    }
    EXPECT_EQ(counts, (std::map<std::string, int>{{"GdFl", 57}, {"SoCo", 20}, {"artb", 2}, {"lfx2", 11}}));
}

struct ExpectedGradient {
    std::vector<image::ColorStop> colorStops;
    std::vector<image::OpacityStop> opacityStops;
    bool colorModelSupported = true;
};

// Parses data/gradient-fill-stops.txt into (file, record index) -> stops, with the scaling of the
// descriptor conversions applied to psd-tools' raw numbers.
std::map<std::pair<std::string, int>, ExpectedGradient> expectedGradients()
{
    std::ifstream in(std::string(PSDKIT_SOURCE_DIR) + "/tests/descriptors/data/gradient-fill-stops.txt");
    std::map<std::pair<std::string, int>, ExpectedGradient> result;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string file, marker, colorClass;
        int record = 0, count = 0;
        fields >> file >> record >> marker >> count;
        ExpectedGradient& expected = result[{file, record}];
        for (int i = 0; i < count; ++i) {
            double location = 0, midpoint = 0, red = 0, green = 0, blue = 0;
            fields >> location >> midpoint >> colorClass;
            image::RGBAPixel color;
            if (colorClass == "RGBC") {
                fields >> red >> green >> blue;
                color = {static_cast<float>(red) / 255.0f, static_cast<float>(green) / 255.0f,
                         static_cast<float>(blue) / 255.0f, 1};
            } else if (colorClass == "Grsc") {
                fields >> red;
                const float gray = static_cast<float>(red) / 100.0f;
                color = {gray, gray, gray, 1};
            } else {
                expected.colorModelSupported = false;
            }
            expected.colorStops.push_back({color, location / 4096, midpoint / 100});
        }
        fields >> marker >> count;
        for (int i = 0; i < count; ++i) {
            double location = 0, midpoint = 0, opacity = 0;
            fields >> location >> midpoint >> opacity;
            expected.opacityStops.push_back({opacity / 100, location / 4096, midpoint / 100});
        }
    }
    return result;
}

TEST(DescriptorCorpusTest, GradientFillsConvertToTheStopsAnIndependentReaderSees)
{
    const auto expected = expectedGradients();
    ASSERT_EQ(expected.size(), 57u);
    int compared = 0;
    for (const auto& block : corpusDescriptorBlocks()) {
        if (block.key != "GdFl") {
            continue;
        }
        SCOPED_TRACE(block.file + " record " + std::to_string(block.recordIndex));
        const auto it = expected.find({block.file, block.recordIndex});
        ASSERT_NE(it, expected.end());
        const auto fill = readBlockDescriptor(block);
        const PSDDescriptor* gradientDescriptor = fill->descriptorValue(PSDFourCharCode("Grad"));
        ASSERT_NE(gradientDescriptor, nullptr);
        if (!it->second.colorModelSupported) {
            EXPECT_EQ(testing::thrownError([&] { (void)gradientFromPSDDescriptor(*gradientDescriptor); }),
                      PSDError::readUnsupportedContentType);
            continue;
        }
        const auto gradient = gradientFromPSDDescriptor(*gradientDescriptor);
        EXPECT_EQ(gradient.colorStops(), it->second.colorStops);
        EXPECT_EQ(gradient.opacityStops(), it->second.opacityStops);
        ASSERT_TRUE(gradient.name.has_value());
        EXPECT_TRUE(gradient.name->empty() || gradient.name->back() != '\0');
        ++compared;
    }
    EXPECT_EQ(compared, 56);
}

} // namespace
} // namespace psdkit
