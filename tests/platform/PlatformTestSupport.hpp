#pragma once
// Helpers shared by the platform tests: minimal PSD/PSB files around a set of image resources.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "psdkit/platform/PlatformError.hpp"
#include "support/ByteBuilder.hpp"
#include "support/CorpusFiles.hpp"
#include "support/PsdFixture.hpp"

namespace psdkit::testing {

struct Resource {
    std::uint16_t identifier;
    std::vector<std::uint8_t> data;
    std::string name = {};
};

/// An RGB file (version 1, or 2 for PSB) of 1 × 1 pixels with the given image resources and
/// nothing after them.
inline std::vector<std::uint8_t> fileWithResources(const std::vector<Resource>& resources, int version = 1)
{
    FileSections sections;
    sections.header = {.version = version, .height = 1, .width = 1};
    sections.resources = [&](ByteBuilder& b) {
        b.begin();
        for (const Resource& r : resources) {
            appendResource(b, r.identifier, r.data, r.name);
        }
        b.end();
    };
    sections.layersAndMasks = [](ByteBuilder&) {};
    sections.imageData = [](ByteBuilder&) {};
    return buildFile(sections);
}

/// The data of the first image resource `identifier` of a PSD or PSB file, read independently
/// of the library; absent when the file has none.
inline std::optional<std::vector<std::uint8_t>> firstResource(const std::vector<std::uint8_t>& file,
                                                              std::uint16_t identifier)
{
    auto be = [&](std::size_t at, std::size_t width) {
        std::uint64_t v = 0;
        for (std::size_t i = 0; i < width; ++i) {
            v = (v << 8) | file.at(at + i);
        }
        return v;
    };
    std::size_t at = 26;
    at += 4 + be(at, 4);
    const std::size_t end = at + 4 + be(at, 4);
    at += 4;
    while (at + 12 <= end) {
        const auto id = be(at + 4, 2);
        const std::size_t nameBytes = (1 + file.at(at + 6) + 1) & ~std::size_t{1};
        at += 6 + nameBytes;
        const std::size_t size = be(at, 4);
        at += 4;
        if (id == identifier) {
            return std::vector<std::uint8_t>(file.begin() + static_cast<std::ptrdiff_t>(at),
                                             file.begin() + static_cast<std::ptrdiff_t>(at + size));
        }
        at += size + size % 2;
    }
    return std::nullopt;
}

} // namespace psdkit::testing
