// Gradient fills of real files convert to the stops an independent reader (psd-tools, see
// data/gradient_fill_stops.py) sees. That every descriptor of the corpus reads, writes and reads back
// equal is the descriptor fuzz target's promise, checked on every corpus descriptor by its seed replay.
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/CorpusFiles.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

struct ExpectedGradient {
    std::vector<image::ColorStop> colorStops;
    std::vector<image::OpacityStop> opacityStops;
    bool colorModelSupported = true;
};
using GradientsByLayer = std::map<std::pair<std::string, int>, ExpectedGradient>;

// Parses data/gradient-fill-stops.txt into (file, record index) -> stops, with the scaling of the
// descriptor conversions applied to psd-tools' raw numbers.
GradientsByLayer expectedGradients()
{
    std::ifstream in(std::string(PSDKIT_SOURCE_DIR) + "/tests/descriptors/data/gradient-fill-stops.txt");
    GradientsByLayer result;
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

// The body of every "GdFl" block of a PSD file's layer records, by record index. A walk of the
// structure only (the files with gradient fills keep their layers in the layer info, in any colour
// mode), so that it does not depend on the document reader, which reads RGB files only.
std::map<int, Bytes> gradientFillBlocks(const Bytes& file)
{
    PSDScanner s(file);
    s.seek(26);
    s.skip(s.scanUInt32()); // colour mode data
    s.skip(s.scanUInt32()); // image resources
    s.skip(8);              // lengths of the layer and mask section and of the layer info
    std::map<int, Bytes> blocks;
    const auto count = std::abs(s.scanInt16());
    for (int record = 0; record < count; ++record) {
        s.skip(16);
        s.skip(s.scanUInt16() * 6 + 12); // channels, blend mode, opacity, clipping, flags
        const std::int64_t extraLength = s.scanUInt32();
        const std::int64_t extraEnd = s.offset() + extraLength;
        s.skip(s.scanUInt32());                  // mask data
        s.skip(s.scanUInt32());                  // blending ranges
        s.skip((s.scanUInt8() + 4) / 4 * 4 - 1); // name, padded to four bytes with its length
        while (s.offset() + 12 <= extraEnd) {
            s.skip(4);
            const std::string key = s.scanFourCharCode().rawValue();
            const auto data = s.scanBytes(s.scanUInt32());
            if (key == "GdFl") {
                blocks[record] = Bytes(data.begin(), data.end());
            }
        }
        s.seek(extraEnd);
    }
    return blocks;
}

TEST(DescriptorCorpusTest, GradientFillsConvertToTheStopsAnIndependentReaderSees)
{
    const auto expected = expectedGradients();
    ASSERT_EQ(expected.size(), 57u);
    std::map<std::string, std::map<int, Bytes>> blocksByFile;
    for (const auto& [layer, gradient] : expected) {
        if (!blocksByFile.contains(layer.first)) {
            blocksByFile[layer.first] = gradientFillBlocks(testing::readCorpusFile(layer.first));
        }
    }
    std::size_t found = 0;
    int compared = 0;
    for (const auto& [file, blocks] : blocksByFile) {
        found += blocks.size();
        for (const auto& [record, data] : blocks) {
            SCOPED_TRACE(file + " record " + std::to_string(record));
            const auto it = expected.find({file, record});
            ASSERT_NE(it, expected.end());
            PSDScanner scanner(data);
            PSDDescriptor fill;
            fill.read(scanner, false);
            const PSDDescriptor* gradientDescriptor = fill.descriptorValue(PSDFourCharCode("Grad"));
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
    }
    EXPECT_EQ(found, expected.size());
    EXPECT_EQ(compared, 56);
}

} // namespace
} // namespace psdkit
