#pragma once
// Helpers shared by the image core's tests.
#include <cstdint>
#include <random>
#include <vector>

namespace psdkit::image::testing {

/// Deterministic bytes mixing runs of equal bytes with noise, so that every PackBits header kind
/// and every deflate path is exercised.
inline std::vector<std::uint8_t> mixedBytes(std::size_t n, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(n);
    while (bytes.size() < n) {
        const std::size_t length = 1 + random() % 200;
        const bool run = random() % 2 == 0;
        const auto value = static_cast<std::uint8_t>(random());
        for (std::size_t i = 0; i < length && bytes.size() < n; ++i) {
            bytes.push_back(run ? value : static_cast<std::uint8_t>(random()));
        }
    }
    return bytes;
}

} // namespace psdkit::image::testing
