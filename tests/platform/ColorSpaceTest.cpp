#include "psdkit/platform/ColorSpace.hpp"

#include <lcms2.h>

#include <gtest/gtest.h>

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

Bytes savedProfile(cmsHPROFILE profile)
{
    cmsUInt32Number size = 0;
    EXPECT_TRUE(cmsSaveProfileToMem(profile, nullptr, &size));
    Bytes bytes(size);
    EXPECT_TRUE(cmsSaveProfileToMem(profile, bytes.data(), &size));
    cmsCloseProfile(profile);
    return bytes;
}

std::uint32_t readBE32(const Bytes& bytes, std::size_t at)
{
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
           std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// Profiles of real files are accepted with their bytes by the corpus reading and round-trip tests.
TEST(ColorSpaceTest, ProfileBytesAreKeptAndBrokenProfilesAreRefused)
{
    const Bytes valid = savedProfile(cmsCreate_sRGBProfile());
    ASSERT_GT(valid.size(), 300u);
    EXPECT_EQ(ColorSpace::fromICCData(valid).value().iccData(), valid);
    EXPECT_EQ(ColorSpace::fromICCData(valid).value().name(), "sRGB built-in");
    EXPECT_FALSE(ColorSpace().iccData().has_value());
    Bytes tagsOutside = valid; // every tag of the directory points past the end of the data
    const std::uint32_t tagCount = readBE32(valid, 128);
    for (std::uint32_t i = 0; i < tagCount; ++i) {
        const std::size_t offsetField = 132 + 12 * i + 4;
        tagsOutside[offsetField] = 0x7F;
    }
    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"empty", {}},
        {"garbage", Bytes(600, 0xAB)},
        {"header only", Bytes(valid.begin(), valid.begin() + 128)},
        {"cut in half", Bytes(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(valid.size() / 2))},
        {"tags outside the data", tagsOutside},
    };
    for (const auto& [name, bytes] : cases) {
        EXPECT_FALSE(ColorSpace::fromICCData(bytes).has_value()) << name;
    }
}

} // namespace
} // namespace psdkit
