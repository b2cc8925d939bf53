// Gradient fills of real files convert to the stops an independent reader (psd-tools, see
// data/gradient_fill_stops.py) sees: every one of the RGB files, which the document reader reads (the
// grey and CMYK stop colours of the other files are the unit tests' cases). That every descriptor of
// the corpus reads, writes and reads back equal is the descriptor fuzz target's promise, checked on
// every corpus descriptor by its seed replay.
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/layers/PSDLayerContent.hpp"
#include "support/CorpusFiles.hpp"

namespace psdkit {
namespace {

using ExpectedStops = std::pair<std::vector<image::ColorStop>, std::vector<image::OpacityStop>>;

// Parses the RGB stops of data/gradient-fill-stops.txt into (file, record index) -> stops, with the
// scaling of the descriptor conversions applied to psd-tools' raw numbers.
std::map<std::pair<std::string, std::size_t>, ExpectedStops> expectedRGBGradients()
{
    std::ifstream in(std::string(PSDKIT_SOURCE_DIR) + "/tests/descriptors/data/gradient-fill-stops.txt");
    std::map<std::pair<std::string, std::size_t>, ExpectedStops> result;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string file, marker, colorClass;
        std::size_t record = 0, count = 0;
        fields >> file >> record >> marker >> count;
        ExpectedStops stops;
        for (std::size_t i = 0; i < count; ++i) {
            double location = 0, midpoint = 0, red = 0, green = 0, blue = 0;
            fields >> location >> midpoint >> colorClass >> red >> green >> blue;
            stops.first.push_back({{static_cast<float>(red) / 255.0f, static_cast<float>(green) / 255.0f,
                                    static_cast<float>(blue) / 255.0f, 1},
                                   location / 4096,
                                   midpoint / 100});
        }
        fields >> marker >> count;
        for (std::size_t i = 0; i < count; ++i) {
            double location = 0, midpoint = 0, opacity = 0;
            fields >> location >> midpoint >> opacity;
            stops.second.push_back({opacity / 100, location / 4096, midpoint / 100});
        }
        if (line.find(" RGBC ") != std::string::npos) {
            result[{file, record}] = stops;
        }
    }
    return result;
}

TEST(DescriptorCorpusTest, GradientFillsConvertToTheStopsAnIndependentReaderSees)
{
    const auto expected = expectedRGBGradients();
    ASSERT_EQ(expected.size(), 55u);
    std::map<std::string, std::vector<std::uint8_t>> files; // kept while their documents are read
    std::map<std::string, PSDWrapper> documents;
    std::size_t compared = 0;
    for (const auto& [layer, stops] : expected) {
        SCOPED_TRACE(layer.first + " record " + std::to_string(layer.second));
        if (!documents.contains(layer.first)) {
            files[layer.first] = testing::readCorpusFile(layer.first);
            documents.emplace(layer.first, PSDWrapper(files[layer.first]));
        }
        const auto& layers = documents.at(layer.first).layers;
        ASSERT_LT(layer.second, layers.size());
        const auto block = findLayerBlock(*layers[layer.second], PSDFourCharCode("GdFl"));
        ASSERT_TRUE(block.has_value());
        PSDScanner scanner(*block);
        PSDDescriptor fill;
        fill.read(scanner, false);
        const PSDDescriptor* gradientDescriptor = fill.descriptorValue(PSDFourCharCode("Grad"));
        ASSERT_NE(gradientDescriptor, nullptr);
        const auto gradient = gradientFromPSDDescriptor(*gradientDescriptor);
        EXPECT_EQ(gradient.colorStops(), stops.first);
        EXPECT_EQ(gradient.opacityStops(), stops.second);
        EXPECT_TRUE(gradient.name.has_value() && (gradient.name->empty() || gradient.name->back() != '\0'));
        ++compared;
    }
    EXPECT_EQ(compared, expected.size());
}

} // namespace
} // namespace psdkit
